#pragma once

/// \file
/// Reading the installer's input file, which contains the user's answers:
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

/// The value of a key: one text, or a list of product names. UTF-16.
using PropertyValue = std::variant<std::u16string, std::vector<std::u16string>>;

/// The entries of an input file, in the order of the keys' UTF-16 code units.
using PropertyMap = std::map<std::u16string, PropertyValue>;

/// Reads input files. An input file is UTF-8 text that consists of lines, each ended by a line feed,
/// which is optional for the last one. Blanks at both ends of a line, key, value or name are removed;
/// blanks are space, line feed, carriage return, horizontal and vertical tab and form feed. Empty lines
/// and lines that begin with "#" are skipped. Other lines have one of these forms:
///
/// - An assignment contains "=". Its key is the text before the first "=". Its value is the text after
///   the run of "=" that begins there, and may be empty.
/// - A product line contains "product", in lowercase, and no "=". Its key is the text before the first
///   ".". Its value is the list of the names on all product lines up to this one.
///
/// In keys, A to Z are converted to lowercase. The name on a product line is the text after the first
/// run of ".", with every "_" replaced by a space. The names of all product lines form one list, even
/// if their keys differ. A later line for a key replaces the earlier value. An assignment to the empty
/// key or to "product" stores nothing. A product line without a name is ignored, like a line of neither
/// form. There are no sections, quotes, escapes or comments after a value, and a byte-order mark is
/// ordinary text.
///
/// A file with n product lines whose keys all differ results in n lists with n²/2 names in total: 247
/// KiB of such lines need more than 6 GiB of memory. Limit the size of untrusted files.
///
/// `getUserInputsFromFile` and `parse` write every input line to the diagnostic channel
/// "install::cpputil::InputFileParser", with severity `details`: " line=" and the line.
///
/// \par Thread safety
///     Objects have no state: any number of threads may use one object or several at once. A call needs
///     up to 32 KiB of the thread's stack.
class INSTALL_CPPUTIL_EXPORT InputFileParser {
public:
    /// Returns the entries of the file at \p path. The map is empty if the file has none, or exists but
    /// cannot be opened for reading.
    /// \throws std::runtime_error "input file does not exist!" if there is no such file, or \p path
    ///     is empty
    /// \throws TextConversionError if a key, value or name is not UTF-8, or \p path not UTF-16
    /// \throws std::invalid_argument if \p path contains a NUL
    /// \throws std::filesystem::filesystem_error if the system does not report whether the file exists
    PropertyMap parse(std::u16string const& path);

    /// Returns the entries of \p text, UTF-8 lines each ended by a line feed. Text after the last line
    /// feed is ignored, and "#" has no special meaning.
    /// \throws TextConversionError if a key, value or name is not UTF-8
    PropertyMap convertInputsToPropertyMap(std::string const& text);

    /// Sets the value of \p key in \p map to \p value, replacing any earlier value. If memory runs out,
    /// the map is unchanged. No other thread may use \p map at the same time.
    void updateMap(PropertyMap& map, std::u16string const& key, PropertyValue const& value);

    /// Replaces every "_" in \p text with a space.
    void removeUnderscores(std::u16string& text);

    /// Returns the lines of the file at \p path that are neither empty nor comments, in the order of the
    /// file, each trimmed, otherwise unchanged, and followed by one line feed. The text is empty if the
    /// file exists but cannot be opened for reading. A failed read ends the file.
    /// \throws std::runtime_error "input file does not exist!" if there is no such file, or \p path
    ///     is empty
    /// \throws TextConversionError, std::invalid_argument, std::filesystem::filesystem_error for \p path
    ///     as `parse` does
    std::string getUserInputsFromFile(std::u16string const& path) const;

    /// Returns \p text without the blanks at its start.
    std::string ltrim(std::string const& text) const;

    /// Returns \p text without the blanks at its end.
    std::string rtrim(std::string const& text) const;

    /// Returns \p text without the blanks at both ends.
    std::string trim(std::string const& text) const;

    /// Returns \p text with A to Z converted to lowercase; other bytes are unchanged.
    std::string stringToLowerCase(std::string const& text) const;
};

}  // namespace install::cpputil
