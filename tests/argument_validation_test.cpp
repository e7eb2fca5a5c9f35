#include "utilities/argument_validation.h"

#include <gtest/gtest.h>

#include <locale>

#include "tests/support.h"
#include "utilities/logger.h"

namespace install::cpputil {
namespace {

using namespace testing;

using Strings = std::vector<std::string>;

std::string failure(std::string const& value, std::string const& rule) {
    return "key='name' value='" + value + "' rule='" + rule + "'";
}

TEST(Validation, ChecksValuesAgainstRules) {
    struct {
        std::string rule;
        Strings passing, failing;
    } const rows[] = {
        {"strval:a,b", {"a", "b"}, {"A", " a", "", "a,b", "ab"}},
        {"strval:a,,b", {"a", "b", ""}, {",", "a,"}},
        {"strval:a,b,", {"a", "b", ""}, {","}},
        {"strval:", {""}, {"a", "strval"}},
        {"strval:x:y,z", {"x:y", "z"}, {"x", "y"}},
        {"strval", {"strval"}, {"", "a"}},
        {"boolval", {"TRUE", "False", "yEs", "NO"}, {"", "1", "0", "y", "on", " true", "truee"}},
        {"boolval:x", {"yes"}, {"x"}},
        {"intval",
         {"42", "-7", "+3", " 12", "12abc", "0x1F", "2147483647", "-2147483648"},
         {"", "abc", " ", "-", "2147483648", "-2147483649", "99999999999999999999"}},
        {"intval:1-10", {"99"}, {"x"}},
        {"STRVAL:a", {"", "b"}, {}},
        {"", {"", "b"}, {}},
        {"rfiles", {"/none"}, {}},
        {" intval", {"x"}, {}},
    };
    TemporaryDirectory const directory;
    ScopedVariable const temp("TMPDIR", directory / "");
    for (auto const& row : rows) {
        for (auto const& value : row.passing) {
            EXPECT_NO_THROW(validate_args({{"name", value}}, {{"name", row.rule}}))
                << failure(value, row.rule);
        }
        for (auto const& value : row.failing) {
            EXPECT_EQ(error_text<std::invalid_argument>([&] {
                          validate_args({{"name", value}}, {{"name", row.rule}});
                      }),
                      failure(value, row.rule));
        }
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory / ""));
}

TEST(Validation, ReportsTheFirstArgumentThatFails) {
    std::map<std::string, std::string> const args = {{"alpha", "x"}, {"Alpha", "y"}, {"free", "z"}};
    EXPECT_NO_THROW(validate_args(args, {}));
    EXPECT_NO_THROW(validate_args({}, {{"alpha", "intval"}}));
    EXPECT_NO_THROW(validate_args(args, {{"other", "intval"}}));
    EXPECT_EQ(error_text<std::invalid_argument>([&] {
                  validate_args(args, {{"alpha", "intval"}, {"Alpha", "boolval"}});
              }),
              "key='Alpha' value='y' rule='boolval'");
}

TEST(Validation, ReadsBooleansAsTheGlobalLocaleHasThem) {
    struct DutchYes : std::ctype<char> {
        char do_toupper(char c) const override {
            return c == 'j' ? 'Y' : std::ctype<char>::do_toupper(c);
        }
    };
    auto const check = [] { validate_args({{"name", "jes"}}, {{"name", "boolval"}}); };
    EXPECT_THROW(check(), std::invalid_argument);
    auto const earlier = std::locale::global(std::locale(std::locale(), new DutchYes));
    EXPECT_NO_THROW(check());
    std::locale::global(earlier);
    EXPECT_THROW(check(), std::invalid_argument);
}

TEST(Validation, LogsFilesThatCannotBeRead) {
    TemporaryDirectory const directory;
    auto const make = [&](std::string const& name, std::string_view content,
                          std::filesystem::perms permissions) {
        write_file(directory / name, content);
        std::filesystem::permissions(directory / name, permissions);
        return (directory / name).native();
    };
    auto const log = make("log", "", std::filesystem::perms::all);
    auto const full = make("full", "x", std::filesystem::perms::all);
    auto const check = [](std::string const& value) {
        return [value] { validate_args({{"name", value}}, {{"name", "rfile:x"}}); };
    };
    Strings expected;
    for (auto const& value :
         Strings{"", directory / "none", make("empty", "", std::filesystem::perms::all),
                 make("closed", "x", std::filesystem::perms::none), directory / "", full + "/x"}) {
        logger::Logger const logger(log);
        ScopedUser const user;
        EXPECT_EQ(error_text<std::runtime_error>(check(value)), failure(value, "rfile:x"));
        expected.push_back("Error reading file " + value);
        expected.push_back("File '" + value + "' does not exist or it's empty");
    }
    std::filesystem::create_directory(directory / "locked");
    std::filesystem::permissions(directory / "locked", std::filesystem::perms::none);
    logger::Logger const logger(log);
    ScopedUser const user;
    EXPECT_NO_THROW(check(full)());
    EXPECT_THROW(check(directory / "locked/x")(), std::filesystem::filesystem_error);
    EXPECT_THROW(check("\xFF")(), TextConversionError);
    EXPECT_THROW(check(std::string("/\0", 2))(), std::invalid_argument);
    EXPECT_EQ(messages(log), expected);
}

}  // namespace
}  // namespace install::cpputil
