#pragma once

/// \file
/// The receipt of an installation: what it consists of, in a file inside it. It distinguishes the
/// installer's files from those that the user has added or changed since.
///
///     product 1.10 Base Tools
///     file 2c26b46b68ffc68ff99b453c1d30413413422d706483bfa0f98a5e886266e7ae bin/tool
///     link fcde2b2edba56bf408601fb721fe9b5c338d10ee429ea04fae5511b68fbf8fb9 bin/t
///     sha256 ...
///
/// The last line is the digest of the others.

#include <map>
#include <string>

#include "product_archive.h"

/// The name of the receipt's file in the directory of the installation.
constexpr auto const* receipt_name = ".receipt";

struct Receipt {
    std::map<std::string, std::string> products;  ///< the version of each product, by name
    ProductArchive::Entries entries;
};

/// Writes the receipt to the current directory. No name may contain a line feed.
/// \throws std::runtime_error if it cannot be written
void write_receipt(Receipt const& receipt);

/// Returns the receipt in \p directory; without products if there is none.
/// \throws std::runtime_error if the receipt is damaged or cannot be read
Receipt read_receipt(std::string const& directory);

/// Removes from \p directory the receipt, the files and links that are as \p receipt lists them,
/// all directories that are then empty, and itself if it is empty. Never enters a mounted file
/// system nor follows a link, even if another process changes the directory at the same time.
/// Returns why entries were kept, by path. Cannot be interrupted.
/// \throws std::system_error if the directory cannot be read
std::map<std::string, std::string> remove_listed(std::string const& directory,
                                                 Receipt const& receipt);
