#pragma once

/// \file
/// Comparison of version numbers.

#include <string>
#include <vector>

#include "../platform/export.h"

namespace install::cpputil {

/// Compares version numbers such as 9.14.2: decimal components separated by ".".
///
///     VersionComparator().compareVersionNumbers(u"9.14.2", u"9.9");  // 1
///
/// Components are compared from the left as 32-bit integers, read by `std::stoi`: leading blanks,
/// leading zeros, a "+" and any text after the digits are ignored.
///
/// \par Thread safety
///     Objects have no state: any number of threads may use one object or several at once.
class INSTALL_CPPUTIL_EXPORT VersionComparator {
public:
    virtual ~VersionComparator();

    /// Returns 1 if \p first is the greater version, -1 if \p second is, and 0 if they are equal.
    /// Both are UTF-16. A missing component counts as 0. Components after the first difference are
    /// not read.
    /// \throws std::invalid_argument if a component that has to be compared does not begin with a
    ///     number
    /// \throws std::out_of_range if its number does not fit 32 bits
    /// \throws TextConversionError if a version is not UTF-16
    virtual int compareVersionNumbers(std::u16string const& first,
                                      std::u16string const& second) const;

    /// Returns the components of the UTF-8 \p text, in order. Each "." ends a component; the text
    /// after the last "." is a component unless it is empty. Other components may be empty.
    std::vector<std::string> tokenizeString(std::string const& text) const;
};

}  // namespace install::cpputil
