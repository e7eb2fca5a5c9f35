#pragma once

/// \file
/// The receipt of an installation: a file inside it that lists its content. It distinguishes the
/// installer's files from those that the user has added or changed since.
///
///     file 2c26b46b68ffc68ff99b453c1d30413413422d706483bfa0f98a5e886266e7ae bin/tool
///     link fcde2b2edba56bf408601fb721fe9b5c338d10ee429ea04fae5511b68fbf8fb9 bin/t
///     product 1.10 Base Tools
///     sha256 ...
///
/// The digest of a link is that of its target's path. The last line is the digest of the others.

#include <fstream>
#include <map>
#include <string>

#include "product_archive.h"

/// The name of the receipt's file in the directory of the installation.
constexpr auto const* receipt_name = ".receipt";

struct Receipt {
    std::map<std::string, std::string> products;  ///< the version of each product, by name
    std::map<std::string, std::string> entries;   ///< the kind and digest of each entry, by path
};

/// Writes the receipt into the current directory. The constructor creates the file, so that an
/// archive that contains this name is rejected.
class ReceiptWriter {
public:
    /// Adds the version of a "product", or the digest of a "file" or "link". \p name must not
    /// contain a line feed.
    void add(std::string const& kind, std::string const& value, std::string const& name);
    /// \throws std::runtime_error if the receipt could not be written
    void finish();

private:
    std::ofstream file_{receipt_name};
    Sha256 digest_;
};

/// Returns the receipt in \p directory, or an empty one if the directory contains none.
/// \throws std::runtime_error if it is damaged, std::system_error if it cannot be opened
Receipt read_receipt(std::string const& directory);

/// Removes from \p directory the receipt, the files and links that are as \p receipt lists them,
/// and all directories that are then empty, including \p directory. Neither enters a mounted file
/// system nor follows a link, even if another process changes the directory at the same time.
/// Returns the reasons why entries were kept, by path. Cannot be interrupted.
std::map<std::string, std::string> remove_listed(std::string const& directory,
                                                 Receipt const& receipt);
