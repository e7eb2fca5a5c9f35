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
/// The digest of a link is that of its target. The last line is the digest of the others.
///
/// Functions throw std::system_error if a system call fails.

#include <map>
#include <optional>
#include <string>

/// The name of the receipt's file in the directory of the installation.
constexpr auto const* receipt_name = ".receipt";

struct Receipt {
    std::map<std::string, std::string> products;  ///< the version of each product, by name
    std::map<std::string, std::string> entries;   ///< the kind and digest of each entry, by path
};

/// Writes the receipt of the current directory and of the \p products in it. No name may contain a
/// line feed.
/// \throws install::cpputil::interrupt::Exception if the flag is raised
void write_receipt(std::map<std::string, std::string> const& products);

/// Returns the receipt in \p directory, or nothing if there is none.
/// \throws std::runtime_error if the receipt is damaged
std::optional<Receipt> read_receipt(std::string const& directory);

/// Removes from \p directory the receipt, the files and links that are as \p receipt lists them,
/// all directories that are then empty, and itself if it is empty. Never enters a mounted file
/// system nor follows a link, even if another process changes the directory at the same time.
/// Returns why entries were kept, by path. Cannot be interrupted.
std::map<std::string, std::string> remove_listed(std::string const& directory,
                                                 Receipt const& receipt);
