// Arguments, the installers' exception, the locale, the sandbox workflow and version numbers.

#include <locale>

#include "platform/file_system_service.h"
#include "tests/support.h"
#include "utilities/argument_validation.h"
#include "utilities/installer_exception.h"
#include "utilities/installer_locale.h"
#include "utilities/logger.h"
#include "utilities/sandbox_workflow_detector.h"
#include "utilities/version_comparator.h"

namespace install::cpputil {
namespace {

using namespace testing;

std::string failure(std::string const& value, std::string const& rule) {
    return "key='name' value='" + value + "' rule='" + rule + "'";
}

void validate(std::string const& value, std::string const& rule) {
    validate_args({{"name", value}}, {{"name", rule}});
}

TEST(Validation, ChecksValuesAgainstRules) {
    TemporaryDirectory const directory;
    auto const temp = with_variable("TMPDIR", directory / "");
    Rows<std::string, Strings, Strings> const rows = {
        {"strval:a,,b", {"a", "b", ""}, {"A", " a", "a,b", "ab", ",", "a,"}},
        {"strval:a,b", {"a", "b"}, {"", ","}},
        {"strval:a,b,", {"a", "b", ""}, {","}},
        {"strval:", {""}, {"a", "strval"}},
        {"strval:x:y,z", {"x:y", "z"}, {"x", "y"}},
        {"strval", {"strval"}, {"", "a"}},
        {"boolval", {"TRUE", "False", "yEs", "NO"}, {"", "1", "y", "on", " true", "truee"}},
        {"boolval:x", {"yes"}, {"x"}},
        {"intval", {"42", "-7", "+3", " 12", "12abc", "0x1F"}, {"", "abc", " ", "-"}},
        {"intval", {"2147483647"}, {"2147483648", "-2147483649", "99999999999999999999"}},
        {"intval:1-10", {"99", "-2147483648"}, {"x"}},
        {"STRVAL:a", {"", "b"}, {}},
        {"", {"", "b"}, {}},
        {"rfiles", {"/none"}, {}},
        {" intval", {"x"}, {}}};
    for (auto const& [rule, passing, failing] : rows) {
        for (auto const& value : passing) {
            EXPECT_NO_THROW(validate(value, rule)) << failure(value, rule);
        }
        for (auto const& value : failing) {
            EXPECT_EQ(error_text<std::invalid_argument>([&] { validate(value, rule); }),
                      failure(value, rule));
        }
    }
    EXPECT_TRUE(fs::is_empty(directory / ""));
}

TEST(Validation, ReportsTheFirstArgumentThatFails) {
    std::map<std::string, std::string> const args = {{"name", "y"}, {"other", "x"}, {"z", "z"}};
    EXPECT_NO_THROW(validate_args(args, {}));
    EXPECT_NO_THROW(validate_args(args, {{"Name", "intval"}}));
    EXPECT_EQ(error_text<std::invalid_argument>([&] {
                  validate_args(args, {{"other", "intval"}, {"name", "boolval"}});
              }),
              failure("y", "boolval"));
}

TEST(Validation, ReadsBooleansAsTheGlobalLocaleHasThem) {
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

TEST(Validation, LogsFilesThatCannotBeRead) {
    TemporaryDirectory const directory;
    auto const log = write_file(directory / "log", "");
    auto const full = write_file(directory / "full", "x");
    auto const empty = write_file(directory / "empty", "");
    auto const closed = write_file(directory / "closed", "x");
    fs::create_directory(directory / "locked");
    deny_access(directory / "locked");
    deny_access(closed);
    logger::Logger const logger(log);
    auto const user = as_user();
    Strings expected;
    for (auto const& value :
         Strings{"", directory / "none", empty, closed, directory / "", full + "/x"}) {
        EXPECT_EQ(error_text<std::runtime_error>([&] { validate(value, "rfile:x"); }),
                  failure(value, "rfile:x"));
        expected.push_back("Error reading file " + value);
        expected.push_back("File '" + value + "' does not exist or it's empty");
    }
    EXPECT_NO_THROW(validate(full, "rfile"));
    EXPECT_THROW(validate(directory / "locked/x", "rfile"), fs::filesystem_error);
    EXPECT_THROW(validate("\xFF", "rfile"), TextConversionError);
    EXPECT_THROW(validate(std::string("/\0", 2), "rfile"), std::invalid_argument);
    EXPECT_EQ(messages(log), expected);
}

std::string shown(InstallerException const& error) {
    return error.getErrorCode() + "|" + error.getPrimaryErrorMessage() + "|" +
           error.getSecondaryErrorMessage() + "|" + error.getLocation() + "|" + error.what();
}

TEST(InstallerException, CarriesItsTextsAndLocation) {
    EXPECT_EQ(shown(InstallerException("message")), "||message||message");
    EXPECT_EQ(shown(InstallerException("", "p", "", "")), "|p|||");
    std::string const long_text(100, 's');
    InstallerException const error("c", "p", long_text, "l");
    InstallerException const copy = error;
    EXPECT_EQ(shown(copy), "c|p|" + long_text + "|l|" + long_text);
    EXPECT_EQ(shown(error), shown(copy));
    Rows<std::string, std::string, std::string> const rows = {
        {"A", "B", "A::B"}, {"A", "", "A"},       {"A", "A", "A"},      {"", "B", "::B"},
        {"", "", ""},       {"A", "AB", "A::AB"}, {"AB", "A", "AB::A"}, {"A::", "::B", "A::::::B"}};
    for (auto const& [scope, name, expected] : rows) {
        EXPECT_EQ(createLocation(scope, name), expected);
    }
}

TEST(InstallerLocale, NamesTheLocaleOfMessages) {
    using Setting = std::optional<std::string>;
    Setting const none;
    Rows<Setting, Setting, Setting, std::string> const rows = {
        {none, none, none, "en_US"},           {none, none, "de_AT.UTF-8@euro", "de_AT"},
        {none, "fr_CA", "de_AT", "fr_CA"},     {"", "fr@x", "de_AT", "fr_"},
        {"_CH.utf8", "fr_CA", "de_AT", "_CH"}, {"C.UTF-8", "fr_CA", "de_AT", "en_US"},
        {"POSIX", "fr_CA", "de_AT", "en_US"},  {".UTF-8", "fr_CA", "de_AT", "_"}};
    for (auto const& [all, messages, lang, expected] : rows) {
        Undo const variables[] = {with_variable("LC_ALL", all),
                                  with_variable("LC_MESSAGES", messages),
                                  with_variable("LANG", lang)};
        EXPECT_EQ(TextConversion::toUtf8(installer_locale::getLocale()), expected);
    }
    auto const malformed = with_variable("LC_ALL", "\xFF_US");
    EXPECT_THROW(installer_locale::getLocale(), TextConversionError);
}

TEST(SandboxWorkflow, IsInForceUnderTheAnchor) {
    TemporaryDirectory const directory;
    SandboxWorkflowDetector const detector;
    fs::create_directories(directory / "b/c");
    auto const answer_with = [&](std::string const& anchor) {
        write_file(directory / anchor, "");
        bool const answer = detector.isSandboxWorkflow();
        fs::remove(directory / anchor);
        return answer;
    };
    FileSystemService::setInstallRoot(utf16(directory / "b//c/"));
    EXPECT_TRUE(answer_with("b/qx_anchor"));
    EXPECT_FALSE(answer_with("b/c/qx_anchor"));
    EXPECT_FALSE(answer_with("qx_anchor"));
    fs::create_directory(directory / "b/qx_anchor");
    EXPECT_TRUE(detector.isSandboxWorkflow());
    // Without a parent, the name stands alone: the current directory's entry.
    FileSystemService::setInstallRoot(u"single");
    auto const earlier = fs::current_path();
    fs::current_path(directory / "b");
    EXPECT_TRUE(detector.isSandboxWorkflow());
    fs::current_path(earlier);
    EXPECT_FALSE(detector.isSandboxWorkflow());

    deny_access(directory / "");
    FileSystemService::setInstallRoot(utf16(directory / "b/c"));
    auto user = as_user();
    EXPECT_FALSE(detector.isSandboxWorkflow());
    EXPECT_THROW(detector.isSandboxPathExist(), fs::filesystem_error);
    user.reset();
    EXPECT_THROW(FileSystemService::setInstallRoot(u"\xD800"), TextConversionError);
    EXPECT_EQ(FileSystemService::installRoot(), utf16(directory / "b/c"));
    FileSystemService::setInstallRoot(u"");
    EXPECT_EQ(FileSystemService::installRoot(),
              utf16(fs::canonical("/proc/self/exe").parent_path()));
}

TEST(SandboxWorkflow, IsForDerivedClassesToDecide) {
    struct Decided : SandboxWorkflowDetector {
        explicit Decided(bool found) : found_(found) {}
        bool isSandboxPathExist() const override { return found_ ? true : throw 42; }
        bool found_;
    };
    EXPECT_TRUE(Decided(true).isSandboxWorkflow());
    EXPECT_FALSE(Decided(false).isSandboxWorkflow());
}

TEST(Versions, AreComparedByComponents) {
    VersionComparator const comparator;
    Rows<std::u16string, std::u16string, int> const rows = {
        {u"1.10", u"1.9", 1},   {u"1", u"1.0.0", 0},   {u"1.2.3", u"1.2", 1},
        {u"1.2", u"1.2.-1", 1}, {u"1.02", u"1.2", 0},  {u"+3", u" 3", 0},
        {u"2b", u"2", 0},       {u"", u"", 0},         {u"", u"0", 0},
        {u"", u"1", -1},        {u"1.2.", u"1.2", 0},  {u"1.x", u"2.x", -1},
        {u"9.14.2", u"9.9", 1}, {u"1.0.0.1", u"1", 1}, {u"-2147483648", u"2147483647", -1}};
    for (auto const& [first, second, expected] : rows) {
        EXPECT_EQ(comparator.compareVersionNumbers(first, second), expected)
            << PrintToString(first);
        EXPECT_EQ(comparator.compareVersionNumbers(second, first), -expected);
    }
    Rows<std::u16string, std::u16string> const refused = {
        {u"1..2", u"1.0.2"}, {u"rc1", u"1"}, {u"1", u"rc1"}, {u"x", u"2147483648"}, {u".", u""}};
    for (auto const& [first, second] : refused) {
        auto const compare = [&] { comparator.compareVersionNumbers(first, second); };
        EXPECT_EQ(error_text<std::invalid_argument>(compare), "stoi");
    }
    auto const overflow = [&] { comparator.compareVersionNumbers(u"2147483648", u"x"); };
    EXPECT_EQ(error_text<std::out_of_range>(overflow), "stoi");
    EXPECT_THROW(comparator.compareVersionNumbers(u"1", u"\xDC00"), TextConversionError);
    Rows<std::string, Strings> const cuts = {{"", {}},          {"1..2", {"1", "", "2"}},
                                             {".5", {"", "5"}}, {"1.2.", {"1", "2"}},
                                             {".", {""}},       {" a ", {" a "}}};
    for (auto const& [text, expected] : cuts) {
        EXPECT_EQ(comparator.tokenizeString(text), expected) << text;
    }
}

}  // namespace
}  // namespace install::cpputil
