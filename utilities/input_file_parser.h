#pragma once

/// \file
/// Reading the installer's input file, which holds the user's answers:
///
///     # inputs for this run
///     Install_Dir = /opt/app
///     product.Base_Tools
///     product.Help
///
/// becomes a map from key to value:
///
///     auto const inputs = install::cpputil::InputFileParser().parse(u"inputs.txt");
///     std::get<std::u16string>(inputs.at(u"install_dir"));           // /opt/app
///     std::get<std::vector<std::u16string>>(inputs.at(u"product"));  // Base Tools, Help

#include <map>
#include <string>
#include <variant>
#include <vector>

#include "../platform/export.h"

namespace install::cpputil {

/// What a key of the input file holds: one text, or a list of product names. UTF-16.
using PropertyValue = std::variant<std::u16string, std::vector<std::u16string>>;

/// The entries of an input file, in the order of the keys' UTF-16 code units.
using PropertyMap = std::map<std::u16string, PropertyValue>;

/// Reads input files. An input file is UTF-8 text of lines, each ended by a line feed (the last one
/// need not be). Blanks at both ends of a line, key, value or name are dropped; blank are space,
/// line feed, carriage return, horizontal and vertical tab and form feed. Empty lines and lines
/// that begin with "#" are skipped. What remains has one of these forms:
///
/// - An assignment holds "=". Its key is the text before the first "=", its value the text after the
///   run of "=" that begins there, which may be empty.
/// - A product line holds "product", in small letters, and no "=". Its key is the text before the
///   first ".", its value the list of the names on all product lines up to this one.
///
/// In keys, the capitals A to Z become small letters. The name on a product line is the text after
/// the first run of ".", with a space for every "_"; the names of all product lines form one list,
/// whatever their keys. A later line for a key replaces the earlier value. An assignment to the
/// empty key or to "product" stores nothing; a product line without a name, like a line of neither
/// form, is ignored. There are no sections, quotes, escapes or comments behind a value, and a
/// byte-order mark is text like any other.
///
/// Objects hold nothing. Every line that is kept is also written to the diagnostic channel
/// "install::cpputil::InputFileParser", as details: " line=" and the line.
///
/// \par Thread safety
///     Any number of threads may use one object or several at once.
class INSTALL_CPPUTIL_EXPORT InputFileParser {
public:
    /// Returns the entries of the file at \p path. The map is empty where the file holds none, or
    /// exists but cannot be opened for reading.
    /// \throws std::runtime_error "input file does not exist!" if there is no such file, or \p path
    ///     is empty
    /// \throws TextConversionError if a key, value or name is not UTF-8, or \p path not UTF-16
    /// \throws std::invalid_argument if \p path holds a NUL
    /// \throws std::filesystem::filesystem_error if the system will not tell whether the file
    /// exists
    PropertyMap parse(std::u16string const& path);

    /// Returns the entries of \p text, UTF-8 lines that are each ended by a line feed: text after
    /// the last line feed is not read, and "#" means nothing here. Takes time and memory in
    /// proportion to \p text and to the map that comes of it.
    /// \throws TextConversionError if a key, value or name is not UTF-8
    PropertyMap convertInputsToPropertyMap(std::string const& text);

    /// Makes \p value the value of \p key in \p map, in place of any earlier one. If memory runs
    /// out, the map is as before. No other thread may use \p map meanwhile.
    void updateMap(PropertyMap& map, std::u16string const& key, PropertyValue const& value);

    /// Replaces every "_" of \p text by a space.
    void removeUnderscores(std::u16string& text);

    /// Returns the lines of the file at \p path that are neither empty nor comments, in the file's
    /// order and its own bytes, each trimmed and followed by one line feed. The text is empty
    /// where the file exists but cannot be opened for reading; a read that fails ends the file.
    /// \throws std::runtime_error "input file does not exist!" if there is no such file, or \p path
    ///     is empty; other exceptions for \p path as `parse`
    std::string getUserInputsFromFile(std::u16string const& path) const;

    /// Returns \p text without the blanks at its start.
    std::string ltrim(std::string const& text) const;

    /// Returns \p text without the blanks at its end.
    std::string rtrim(std::string const& text) const;

    /// Returns \p text without the blanks at both ends.
    std::string trim(std::string const& text) const;

    /// Returns \p text with small letters for the capitals A to Z; every other byte stays.
    std::string stringToLowerCase(std::string const& text) const;
};

}  // namespace install::cpputil
