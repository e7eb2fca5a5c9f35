#include "utilities/argument_validation.h"

#include <locale>

#include "tests/log.h"

namespace install::cpputil::tests {
namespace {

std::string failure(std::string const& value, std::string const& rule) {
    return "key='name' value='" + value + "' rule='" + rule + "'";
}

void validate(std::string const& value, std::string const& rule) {
    validate_args({{"name", value}}, {{"name", rule}});
}

TEST(ArgumentValidation, ChecksValuesAgainstRules) {
    struct Row {
        std::string rule;
        Strings valid, invalid;
    };
    Row const rows[] = {
        {"strval:a,,b", {"a", "b", ""}, {"A", " a", "a,b", "ab", ",", "a,"}},
        {"strval:a,b", {"a", "b"}, {"", ","}},
        {"strval:a,b,", {"a", "b", ""}, {","}},
        {"strval:a, b", {"a", " b"}, {"b"}},
        {"strval:", {""}, {"a", "strval"}},
        {"strval:x:y,z", {"x:y", "z"}, {"x", "y"}},
        {"strval", {"strval"}, {"", "a"}},  // Without a colon, the rule itself is the list.
        {"boolval", {"TRUE", "False", "yEs", "NO"}, {"", "1", "y", "on", " true", "truee"}},
        {"boolval:x", {"yes"}, {"x"}},
        {"intval", {"42", "-7", "+3", " 12", "12abc", "0x1F"}, {"", "abc", " ", "-"}},
        {"intval", {"2147483647"}, {"2147483648", "-2147483649", "99999999999999999999"}},
        {"intval:1-10", {"99", "-2147483648"}, {"x"}},  // The parameter is ignored.
        // Unknown rules.
        {"STRVAL:a", {"", "b"}, {}},
        {"", {"", "b"}, {}},
        {"rfiles", {"/none"}, {}},
        {" intval", {"x"}, {}}};
    for (auto const& row : rows) {
        for (auto const& value : row.valid) {
            EXPECT_NO_THROW(validate(value, row.rule)) << failure(value, row.rule);
        }
        for (auto const& value : row.invalid) {
            EXPECT_EQ(error_text<std::invalid_argument>([&] { validate(value, row.rule); }),
                      failure(value, row.rule));
        }
    }
}

TEST(ArgumentValidation, ChecksArgumentsThatHaveARuleInTheOrderOfTheirNames) {
    std::map<std::string, std::string> const args = {{"name", "y"}, {"other", "x"}, {"z", "z"}};
    EXPECT_NO_THROW(validate_args(args, {}));
    EXPECT_NO_THROW(validate_args(args, {{"Name", "intval"}, {"names", "intval"}}));
    EXPECT_EQ(error_text<std::invalid_argument>([&] {
                  validate_args(args, {{"other", "intval"}, {"name", "boolval"}});
              }),
              failure("y", "boolval"));
}

TEST(ArgumentValidation, ComparesBooleansInTheGlobalLocale) {
    struct DutchYes : std::ctype<char> {
        char do_toupper(char c) const override {
            return c == 'j' ? 'Y' : std::ctype<char>::do_toupper(c);
        }
    };
    EXPECT_THROW(validate("jes", "boolval"), std::invalid_argument);
    auto const earlier = std::locale::global(std::locale(std::locale(), new DutchYes));
    EXPECT_NO_THROW(validate("jes", "boolval"));
    std::locale::global(earlier);
}

TEST(ArgumentValidation, LogsFilesThatCannotBeRead) {
    TemporaryDirectory const directory;
    auto const log = write_file(directory / "log", "");
    auto const full = write_file(directory / "full", "x");
    auto const empty = write_file(directory / "empty", "");
    auto const closed = write_file(directory / "closed", "x");
    auto const pipe = (directory / "pipe").native();
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0666), 0);
    fs::create_directory(directory / "locked");
    deny_access(directory / "locked");
    deny_access(closed);
    logger::Logger const logger(log);
    auto const user = as_user();
    Strings expected;
    for (auto const& value : Strings{"", directory / "none", empty, closed, directory / "",
                                     full + "/x", pipe, std::string(300, 'x')}) {
        EXPECT_EQ(error_text<std::runtime_error>([&] { validate(value, "rfile:x"); }),
                  failure(value, "rfile:x"));
        expected.push_back("Error reading file " + value);
        expected.push_back("File '" + value + "' does not exist or it's empty");
    }
    EXPECT_NO_THROW(validate(full, "rfile"));
    EXPECT_THROW(validate(directory / "locked/x", "rfile"), fs::filesystem_error);
    EXPECT_THROW(validate("\xFF", "rfile"), TextConversionError);
    EXPECT_THROW(validate(std::string("/\0", 2), "rfile"), std::invalid_argument);
    for (auto const* const other_rule : {"boolval", "intval", "strval:y"}) {
        EXPECT_ANY_THROW(validate("x", other_rule));  // Logs nothing.
    }
    EXPECT_EQ(messages(log), expected);
}

}  // namespace
}  // namespace install::cpputil::tests
