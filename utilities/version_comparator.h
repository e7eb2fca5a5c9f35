#pragma once

#include <string>
#include <vector>

#include "../platform/export.h"

namespace install::cpputil {

/// Orders version numbers: decimal components with "." between them, such as 9.14.2.
///
///     VersionComparator().compareVersionNumbers(u"9.14.2", u"9.9");  // 1
///
/// Components are compared from the left as 32-bit integers, read as `std::stoi` does: leading
/// blanks, zeros and a "+" make no difference, and neither does what follows the digits.
///
/// \par Thread safety
///     Objects hold nothing: any number of threads may use one object or several at once.
class INSTALL_CPPUTIL_EXPORT VersionComparator {
public:
    virtual ~VersionComparator();

    /// Returns 1 if \p first is the greater version, -1 if \p second is, 0 if they are equal; both
    /// are UTF-16. A component that only one of them has is compared with 0. Nothing is looked at
    /// behind the first difference.
    /// \throws std::invalid_argument if a component that has to be compared begins with no number
    /// \throws std::out_of_range if its number does not fit 32 bits
    /// \throws TextConversionError if a version is not UTF-16
    virtual int compareVersionNumbers(std::u16string const& first,
                                      std::u16string const& second) const;

    /// Returns the components of \p text, UTF-8, in order: what each "." ends, and the text behind
    /// the last "." if there is any. Components may be empty.
    std::vector<std::string> tokenizeString(std::string const& text) const;
};

}  // namespace install::cpputil
