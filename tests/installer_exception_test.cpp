#include "utilities/installer_exception.h"

#include <gtest/gtest.h>

namespace install::cpputil {
namespace {

std::string shown(InstallerException const& error) {
    return error.getErrorCode() + "|" + error.getPrimaryErrorMessage() + "|" +
           error.getSecondaryErrorMessage() + "|" + error.getLocation() + "|" + error.what();
}

TEST(InstallerException, ReturnsItsStrings) {
    EXPECT_EQ(shown(InstallerException("message")), "||message||message");
    EXPECT_EQ(shown(InstallerException("", "p", "", "")), "|p|||");
    std::string const long_text(100, 's');
    InstallerException const error("c", "p", long_text, "l");
    EXPECT_EQ(shown(InstallerException(error)), "c|p|" + long_text + "|l|" + long_text);
}

TEST(InstallerException, JoinsLocations) {
    EXPECT_EQ(createLocation("A", "B"), "A::B");
    EXPECT_EQ(createLocation("A", ""), "A");
    EXPECT_EQ(createLocation("A", "A"), "A");
    EXPECT_EQ(createLocation("", "B"), "::B");
    EXPECT_EQ(createLocation("", ""), "");
    EXPECT_EQ(createLocation("A::", "::B"), "A::::::B");
    EXPECT_EQ(createLocation("A", "AB"), "A::AB");
    EXPECT_EQ(createLocation("AB", "A"), "AB::A");
}

}  // namespace
}  // namespace install::cpputil
