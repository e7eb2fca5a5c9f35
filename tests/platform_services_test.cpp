// Paths, the file system, users and local time.

#include <langinfo.h>
#include <sys/resource.h>

#include <bit>
#include <clocale>
#include <ctime>

#include "platform/file_system_service.h"
#include "platform/platform_info.h"
#include "tests/files.h"

namespace install::cpputil::tests {
namespace {

TEST(Path, ReducesRunsOfSeparatorsToOne) {
    Path const path(u"//a///b/../\u00e9//");
    EXPECT_EQ(path.string(), u"/a/b/../\u00e9/");
    EXPECT_EQ(path.narrowName(), "/a/b/../\xC3\xA9/");
    EXPECT_EQ(Path().string(), u"");
}

TEST(Path, RejectsNulAndMalformedText) {
    EXPECT_EQ(error_text<std::invalid_argument>([] { Path(std::u16string(u"/a\0b", 4)); }),
              "a path must not contain a NUL: \"/a\" is followed by one");
    EXPECT_THROW(Path(u"/\xD800"), TextConversionError);
}

TEST(FileSystemService, RemovesAndAddsComponents) {
    std::map<std::u16string, std::u16string> const parents = {
        {u"/a/b/c", u"/a/b"}, {u"/a/b/c//", u"/a/b"},
        {u"/a//b", u"/a"},    {u"a/b", u"a"},
        {u"/a", u"/"},        {u"//a/", u"/"},
        {u"a/..", u"a"},      {u"/", u""},
        {u"//", u""},         {u"a", u""},
        {u"a/", u""},         {u"", u""}};
    for (auto const& [path, parent] : parents) {
        EXPECT_EQ(FileSystemService::parentPath(path), parent) << PrintToString(path);
    }
    EXPECT_EQ(FileSystemService::concatenatePath(Path(), u"b").string(), u"b");
}

TEST(FileSystemService, CreatesMissingDirectories) {
    TemporaryDirectory const directory;
    // std::filesystem::create_directories fails for more than 1,000 missing directories.
    std::string name = ".";
    for (int count = 0; count != 1'100; ++count) {
        name.insert(0, "d/");
    }
    Path const path(utf16(directory / name));
    EXPECT_TRUE(FileSystemService::createDirectories(path));
    EXPECT_FALSE(FileSystemService::createDirectories(path));
    EXPECT_THROW(FileSystemService::createDirectories(Path()), fs::filesystem_error);
}

TEST(FileSystemService, ReadsTheTemporaryDirectoryFromTheEnvironment) {
    std::map<std::optional<std::string>, std::u16string> const directories = {
        {std::nullopt, u"/tmp"}, {"", u"/tmp"}, {"/not/there//", u"/not/there"},
        {"/\xFF", u"/tmp"},      {"/", u""},    {"relative", u"relative"}};
    for (auto const& [value, directory] : directories) {
        auto const variable = with_variable("TMPDIR", value);
        EXPECT_EQ(FileSystemService::tempDirectory(), directory) << PrintToString(value);
    }
}

TEST(FileSystemService, ReturnsTheInstallationRootThatWasSet) {
    FileSystemService::setInstallRoot(u"/a//b/");
    EXPECT_THROW(FileSystemService::setInstallRoot(u"\xD800"), TextConversionError);
    EXPECT_EQ(FileSystemService::installRoot(), u"/a/b/");
    FileSystemService::setInstallRoot(u"");
    EXPECT_EQ(FileSystemService::installRoot(),
              utf16(fs::canonical("/proc/self/exe").parent_path()));
}

TEST(PlatformInfo, ReturnsTheLastKnownNameWhileTheUserDatabaseFails) {
    constexpr uid_t root = 0, known = 1, unknown = 3;
    auto const name_of = [](uid_t user) {
        auto const effective_user = as_user(user);
        return PlatformInfo().userName();
    };
    auto const name = name_of(known);
    name_of(root);
    rlimit earlier = {};
    ::getrlimit(RLIMIT_NOFILE, &earlier);
    rlimit const none = {0, earlier.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);  // The database cannot be opened.
    auto const known_name = name_of(known), unknown_name = name_of(unknown);
    ::setrlimit(RLIMIT_NOFILE, &earlier);
    EXPECT_EQ(known_name, name);
    EXPECT_EQ(unknown_name, ::geteuid() == root ? "" : name);
    EXPECT_NE(name_of(unknown), "");
}

// In the locale of this test, every month has the name "m".
TEST(PlatformInfo, FormatsEnglishTimesInEveryLocale) {
    TemporaryDirectory const directory;
    write_file(directory / "charmap",
               "<code_set_name> X\n<escape_char> /\nCHARMAP\n"
               "<U0000>..<U007F> /x00 ASCII\nEND CHARMAP\n");
    write_file(directory / "source",
               "LC_TIME\n"
               "abmon \"m\";\"m\";\"m\";\"m\";\"m\";\"m\";\"m\";\"m\";\"m\";\"m\";\"m\";\"m\"\n"
               "END LC_TIME\n");
    auto const locales = with_variable("LOCPATH", directory / "");
    // An emulated test runs the localedef of the system, which may have another byte order.
    std::string const order = std::endian::native == std::endian::big ? "big" : "little";
    auto const create = "cd $LOCPATH; localedef --quiet --" + order +
                        "-endian -c -f ./charmap -i ./source ./xx >/dev/null 2>&1";
    // The status is 1, because the source has no other categories.
    EXPECT_EQ(WEXITSTATUS(std::system(create.c_str())), 1);
    EXPECT_NE(std::setlocale(LC_TIME, "xx"), nullptr);
    EXPECT_STREQ(::nl_langinfo(ABMON_3), "m");
    std::time_t const time = 1772508907;  // 3 March 2026, 3:35:07 UTC
    EXPECT_EQ(PlatformInfo::formatTime(time, "%b"), "Mar");
    std::setlocale(LC_TIME, "C");
}

TEST(PlatformInfo, FormatsLocalTime) {
    auto zone = with_variable("TZ", "XYZ-5:30");
    ::tzset();
    std::time_t const time = 1772508907;  // 3 March 2026, 3:35:07 UTC
    EXPECT_EQ(PlatformInfo::formatTime(time, "%b %d, %Y %H:%M:%S"), "Mar 03, 2026 09:05:07");
    EXPECT_EQ(PlatformInfo::formatTime(time, "\xC3\xA9%B"), "\xC3\xA9March");
    EXPECT_EQ(PlatformInfo::formatTime(time, ""), "");
    std::string const longer_than_the_buffer(300, 'x');
    EXPECT_EQ(PlatformInfo::formatTime(time, longer_than_the_buffer + "%y"),
              longer_than_the_buffer + "26");
    zone.reset();
    ::tzset();
    EXPECT_THROW(PlatformInfo::formatTime(std::numeric_limits<std::time_t>::max(), "%Y"),
                 std::system_error);
    EXPECT_THROW(PlatformInfo::formatTime(time, std::string("%Y\0", 3)), std::invalid_argument);
}

}  // namespace
}  // namespace install::cpputil::tests
