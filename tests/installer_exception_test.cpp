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
    struct Row {
        std::string scope, name, location;
    };
    Row const rows[] = {
        {"A", "B", "A::B"}, {"A", "", "A"},       {"A", "A", "A"},      {"", "B", "::B"},
        {"", "", ""},       {"A", "AB", "A::AB"}, {"AB", "A", "AB::A"}, {"A::", "::B", "A::::::B"}};
    for (auto const& row : rows) {
        EXPECT_EQ(createLocation(row.scope, row.name), row.location);
    }
}

}  // namespace
}  // namespace install::cpputil
