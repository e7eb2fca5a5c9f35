#pragma once

/// \file
/// The receipt of an installation: what it consists of, in a file inside it. It distinguishes the
/// installer's files from those that the user has added or changed since.
///
///     receipt 1
///     product 1.10 Base Tools
///     file 2c26b46b68ffc68ff99b453c1d30413413422d706483bfa0f98a5e886266e7ae bin/tool
///     link fcde2b2edba56bf408601fb721fe9b5c338d10ee429ea04fae5511b68fbf8fb9 bin/t
///     sha256 ...
///
/// The last line is the digest of the others. The lines of files and links follow the line of their
/// product.

#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "product_archive.h"

/// The name of the receipt's file in the directory of the installation.
constexpr auto const* receipt_name = ".receipt";

struct Receipt {
    std::map<std::string, std::string> products;  ///< the version of each product, by name
    std::map<std::string, std::string> entries;   ///< what `describe_entry` returned, by path
};

/// Writes a receipt while products are unpacked, so that its size is not limited by memory.
class ReceiptWriter {
public:
    /// Creates the file in the current directory.
    ReceiptWriter();
    /// Adds a line for \p name, which must not contain a line feed.
    /// \param description  "product" and its version, or what `describe_entry` returned
    void add(std::string const& description, std::string const& name);
    /// Adds the digest.
    /// \throws std::runtime_error if the file could not be written
    void finish();

private:
    void write(std::string const& line);

    std::ofstream file_;
    Sha256 digest_;
};

/// Returns the receipt in \p directory, or nothing if there is none. \p path is the name of the
/// directory in messages.
/// \throws std::runtime_error if the receipt is damaged
/// \throws std::system_error if it cannot be read
std::optional<Receipt> read_receipt(int directory, std::string const& path);

/// Opens the directory \p name in \p parent, which must not be a link.
/// \throws std::system_error if it cannot be opened
Descriptor open_directory(int parent, std::string const& name);

/// Called with the path of an entry that was not removed, and the reason.
using Kept = std::function<void(std::string const&, std::string const&)>;

/// Removes from \p directory the receipt, the files and links that are as \p receipt lists them,
/// and all directories that are then empty. Without a \p receipt, removes everything. Never enters
/// a mounted file system.
void remove_entries(Descriptor const& directory, Receipt const* receipt, Kept const& kept);
