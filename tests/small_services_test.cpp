// The installers' exception, the locale, the sandbox workflow and version numbers.

#include <gtest/gtest.h>

#include "platform/file_system_service.h"
#include "tests/support.h"
#include "utilities/installer_exception.h"
#include "utilities/installer_locale.h"
#include "utilities/sandbox_workflow_detector.h"
#include "utilities/version_comparator.h"

namespace install::cpputil {
namespace {

using namespace testing;

std::string shown(InstallerException const& error) {
    return error.getErrorCode() + "|" + error.getPrimaryErrorMessage() + "|" +
           error.getSecondaryErrorMessage() + "|" + error.getLocation() + "|" + error.what();
}

TEST(InstallerException, CarriesItsTexts) {
    EXPECT_EQ(shown(InstallerException("message")), "||message||message");
    EXPECT_EQ(shown(InstallerException("", "p", "", "")), "|p|||");
    std::string const long_text(100, 's');
    InstallerException const error("c", "p", long_text, "l");
    InstallerException const copy = error;
    EXPECT_EQ(shown(copy), "c|p|" + long_text + "|l|" + long_text);
    EXPECT_EQ(shown(error), shown(copy));
}

TEST(InstallerException, KnowsItsLocation) {
    struct {
        std::string scope, name, expected;
    } const rows[] = {
        {"A", "B", "A::B"}, {"A", "", "A"},       {"A", "A", "A"},      {"", "B", "::B"},
        {"", "", ""},       {"A", "AB", "A::AB"}, {"AB", "A", "AB::A"}, {"A::", "::B", "A::::::B"}};
    for (auto const& row : rows) {
        EXPECT_EQ(createLocation(row.scope, row.name), row.expected);
    }
}

TEST(InstallerLocale, NamesTheLocaleOfMessages) {
    struct {
        std::optional<std::string> all, messages, lang;
        std::string expected;
    } const rows[] = {
        {std::nullopt, std::nullopt, std::nullopt, "en_US"},
        {std::nullopt, std::nullopt, "de_AT.UTF-8@euro", "de_AT"},
        {std::nullopt, "fr_CA", "de_AT", "fr_CA"},
        {"", "fr@x", "de_AT", "fr_"},
        {"_CH.utf8", "fr_CA", "de_AT", "_CH"},
        {"C.UTF-8", "fr_CA", "de_AT", "en_US"},
        {"POSIX", "fr_CA", "de_AT", "en_US"},
        {".UTF-8", "fr_CA", "de_AT", "_"},
    };
    for (auto const& row : rows) {
        ScopedVariable const all("LC_ALL", row.all);
        ScopedVariable const messages("LC_MESSAGES", row.messages);
        ScopedVariable const lang("LANG", row.lang);
        EXPECT_EQ(TextConversion::toUtf8(installer_locale::getLocale()), row.expected);
    }
    ScopedVariable const malformed("LC_ALL", "\xFF_US");
    EXPECT_THROW(installer_locale::getLocale(), TextConversionError);
}

TEST(SandboxWorkflow, IsInForceUnderTheAnchor) {
    TemporaryDirectory const directory;
    SandboxWorkflowDetector const detector;
    std::filesystem::create_directories(directory / "b/c");
    FileSystemService::setInstallRoot(utf16(directory / "b//c/"));
    auto const answer_with = [&](std::string const& anchor, bool is_directory) {
        is_directory ? static_cast<void>(std::filesystem::create_directory(directory / anchor))
                     : write_file(directory / anchor, "");
        bool const answer = detector.isSandboxWorkflow();
        std::filesystem::remove(directory / anchor);
        return answer;
    };
    EXPECT_TRUE(answer_with("b/qx_anchor", false));
    EXPECT_TRUE(answer_with("b/qx_anchor", true));
    EXPECT_FALSE(answer_with("b/c/qx_anchor", false));
    EXPECT_FALSE(answer_with("qx_anchor", true));

    // Without a parent, the name stands alone: the current directory's entry.
    FileSystemService::setInstallRoot(u"single");
    auto const earlier = std::filesystem::current_path();
    std::filesystem::current_path(directory / "b");
    EXPECT_TRUE(answer_with("b/qx_anchor", false));
    std::filesystem::current_path(earlier);

    std::filesystem::permissions(directory / "", std::filesystem::perms::none);
    FileSystemService::setInstallRoot(utf16(directory / "b/c"));
    {
        ScopedUser const user;
        EXPECT_FALSE(detector.isSandboxWorkflow());
        EXPECT_THROW(detector.isSandboxPathExist(), std::filesystem::filesystem_error);
    }
    EXPECT_THROW(FileSystemService::setInstallRoot(u"\xD800"), TextConversionError);
    EXPECT_EQ(FileSystemService::installRoot(), utf16(directory / "b/c"));
    FileSystemService::setInstallRoot(u"");
    EXPECT_EQ(FileSystemService::installRoot(),
              utf16(std::filesystem::canonical("/proc/self/exe").parent_path()));
}

TEST(SandboxWorkflow, IsForDerivedClassesToDecide) {
    struct Found : SandboxWorkflowDetector {
        bool isSandboxPathExist() const override { return true; }
    };
    struct Failed : SandboxWorkflowDetector {
        bool isSandboxPathExist() const override { throw 42; }
    };
    EXPECT_TRUE(Found().isSandboxWorkflow());
    EXPECT_FALSE(Failed().isSandboxWorkflow());
}

TEST(Versions, AreComparedByComponents) {
    struct {
        std::u16string first, second;
        int expected;
    } const rows[] = {
        {u"1.10", u"1.9", 1},   {u"1", u"1.0.0", 0},   {u"1.2.3", u"1.2", 1},
        {u"1.2", u"1.2.-1", 1}, {u"1.02", u"1.2", 0},  {u"+3", u" 3", 0},
        {u"2b", u"2", 0},       {u"", u"", 0},         {u"", u"0", 0},
        {u"", u"1", -1},        {u"1.2.", u"1.2", 0},  {u"1.x", u"2.x", -1},
        {u"9.14.2", u"9.9", 1}, {u"1.0.0.1", u"1", 1}, {u"-2147483648", u"2147483647", -1},
    };
    VersionComparator const comparator;
    for (auto const& row : rows) {
        EXPECT_EQ(comparator.compareVersionNumbers(row.first, row.second), row.expected)
            << TextConversion::toUtf8(row.first);
        EXPECT_EQ(comparator.compareVersionNumbers(row.second, row.first), -row.expected)
            << TextConversion::toUtf8(row.first);
    }
    for (auto const& [first, second] :
         std::vector<std::pair<std::u16string, std::u16string>>{{u"1..2", u"1.0.2"},
                                                                {u"rc1", u"1"},
                                                                {u"1", u"rc1"},
                                                                {u"x", u"2147483648"},
                                                                {u".", u""}}) {
        EXPECT_EQ(error_text<std::invalid_argument>(
                      [&] { comparator.compareVersionNumbers(first, second); }),
                  "stoi");
    }
    EXPECT_EQ(error_text<std::out_of_range>(
                  [&] { comparator.compareVersionNumbers(u"2147483648", u"x"); }),
              "stoi");
    EXPECT_THROW(comparator.compareVersionNumbers(u"1", u"\xDC00"), TextConversionError);
}

TEST(Versions, AreCutAtTheirDots) {
    for (auto const& [text, expected] :
         std::vector<std::pair<std::string, std::vector<std::string>>>{{"", {}},
                                                                       {"1..2", {"1", "", "2"}},
                                                                       {".5", {"", "5"}},
                                                                       {"1.2.", {"1", "2"}},
                                                                       {".", {""}},
                                                                       {" a ", {" a "}}}) {
        EXPECT_EQ(VersionComparator().tokenizeString(text), expected) << text;
    }
}

}  // namespace
}  // namespace install::cpputil
