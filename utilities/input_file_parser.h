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

/// The value of a key: one UTF-16 string, or a list of UTF-16 product names.
using PropertyValue = std::variant<std::u16string, std::vector<std::u16string>>;

/// The entries of an input file, in the order of the keys' UTF-16 code units.
using PropertyMap = std::map<std::u16string, PropertyValue>;

/// Reads input files. An input file is UTF-8 text that consists of lines, each ended by a line
/// feed, which is optional for the last one. Blanks at both ends of a line, key, value or name are
/// removed; blanks are space, line feed, carriage return, horizontal and vertical tab and form
/// feed. Empty lines and lines that begin with "#" are skipped. Two forms of lines have an effect:
///
/// - An assignment contains "=". Its key is the text before the first "=". Its value is the text
///   after the run of "=" that begins there, and may be empty.
/// - A product line contains "product", in lowercase, and no "=". Its key is the text before the
///   first ".". Its value is the list of the names on all product lines up to this one.
///
/// In keys, A to Z are converted to lowercase. The name on a product line is the text after the
/// first run of ".", with every "_" replaced by a space. The names of all product lines form one
/// list, even if their keys differ. A later line for a key replaces the earlier value. An
/// assignment to the empty key or to "product" stores nothing. A product line without a name and
/// any other line are ignored. A byte-order mark is ordinary text.
///
/// Other formats may treat these lines differently:
///
/// | Line               | Result                                                              |
/// |--------------------|---------------------------------------------------------------------|
/// | `name = "My App"`  | The quotes belong to the value. Backslashes do not escape anything. |
/// | `port = 80 # http` | The value is "80 # http". Only a whole line can be a comment.       |
/// | `path = /opt/\`    | The value ends in a backslash. The next line is a line of its own.  |
/// | `; a = b`          | An assignment to the key "; a". ";" does not start a comment.       |
/// | `[server]`         | Ignored. There are no sections: the keys after it have no prefix.   |
/// | `name: value`      | Ignored, because it contains no "=".                                |
///
/// A file with n product lines whose keys all differ results in n lists with n²/2 names in total:
/// 247 KiB of such lines need more than 6 GiB of memory. Limit the size of untrusted files.
///
/// `getUserInputsFromFile` and `parse` write every line that is neither empty nor a comment to the
/// diagnostic channel "install::cpputil::InputFileParser", with severity `details`: " line=" and
/// the trimmed line.
///
/// \par Thread safety
///     Objects have no state: any number of threads may use one object or several at once. A call
///     needs up to 32 KiB of the thread's stack.
class INSTALL_CPPUTIL_EXPORT InputFileParser {
public:
    /// Returns the entries of the file at \p path. Returns an empty map if the file has no entries
    /// or cannot be opened. A read error is treated as end of file; a line cut short is dropped.
    /// Waits for the writer of a pipe; meanwhile, the thread can be cancelled.
    /// \throws std::runtime_error "input file does not exist!" if there is no such file, or \p path
    ///     is empty
    /// \throws TextConversionError if a key, value or name is not UTF-8, or \p path is not UTF-16
    /// \throws std::invalid_argument if \p path contains a NUL
    /// \throws std::filesystem::filesystem_error if the file's existence cannot be determined
    PropertyMap parse(std::u16string const& path);

    /// Returns the entries of the UTF-8 \p text, whose lines each end with a line feed. Text after
    /// the last line feed is ignored, and "#" has no special meaning. A product line is
    /// ignored only if nothing follows the dots: in "product. ", the blank is an empty name.
    /// \throws TextConversionError if a key, value or name is not UTF-8
    PropertyMap convertInputsToPropertyMap(std::string const& text);

    /// Sets the value of \p key in \p map to \p value, replacing any earlier value. If memory runs
    /// out, the map is unchanged. No other thread may use \p map at the same time.
    void updateMap(PropertyMap& map, std::u16string const& key, PropertyValue const& value);

    /// Replaces every "_" in \p text with a space.
    void removeUnderscores(std::u16string& text);

    /// Returns the lines of the file at \p path that are neither empty nor comments, in the order
    /// of the file, each trimmed, otherwise unchanged, and followed by one line feed. Returns an
    /// empty string if the file cannot be opened. Reads as `parse` does.
    /// \throws what `parse` throws for \p path
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
