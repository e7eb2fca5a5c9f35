#include "platform/file_stream.h"
#include "platform/file_system_service.h"
#include "platform/platform_info.h"
#include "tests/support.h"

namespace install::cpputil {
namespace {

using namespace testing;

TEST(TextConversion, KeepsEveryCharacter) {
    Rows<std::string, std::u16string> const rows = {
        {"", u""},
        {"1234567", u"1234567"},
        {"12345678\x7F", u"12345678\x7F"},
        {{"a\0b\0", 4}, {u"a\0b\0", 4}},
        {"\xC2\x80\xDF\xBF", u"\u0080\u07FF"},
        {"\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", u"\u0800\uD7FF\uE000\uFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", u"\U00010000\U0010FFFF"},
        {"\xEF\xBB\xBFx", u"\uFEFFx"}};
    for (auto const& [narrow, wide] : rows) {
        // At every distance from a word of ASCII.
        for (std::size_t before = 0; before != 9; ++before) {
            auto const utf8 = std::string(before, 'x') + narrow + "ASCII after";
            auto const utf16 = std::u16string(before, u'x') + wide + u"ASCII after";
            EXPECT_EQ(TextConversion::fromUtf8(utf8), utf16) << narrow;
            EXPECT_EQ(TextConversion::toUtf8(utf16), utf8);
            EXPECT_EQ(TextConversion::toNarrow(utf16), utf8);
        }
    }
}

TEST(TextConversion, NamesTheFirstMalformedSequence) {
    for (std::string const malformed :
         {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3(", "\xE0\x9F\xBF", "\xE2\x82",
          "\xE2\x82(", "\xE2(\x80", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF",
          "\xF0\x90\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF8\x88\x80\x80\x80", "\xFE",
          "\xFF"}) {
        for (std::string const after : {"", "x", "\xFF 12345678"}) {
            auto const text = "12345678\xC3\xA9" + malformed + after;
            EXPECT_EQ(error_text<TextConversionError>([&] { TextConversion::fromUtf8(text); }),
                      "text is not UTF-8: malformed at offset 10");
        }
    }
    for (std::u16string const malformed :
         {u"\xD800", u"\xDBFFx", u"\xD800\xD800\xDC00", u"\xDC00\xD800", u"\xDFFF"}) {
        auto const text = u"1234\U00010000" + malformed;
        EXPECT_EQ(error_text<TextConversionError>([&] { TextConversion::toNarrow(text); }),
                  "text is not UTF-16: malformed at offset 6");
    }
}

TEST(Path, HoldsTheNativeFormAndRefusesWhatNamesAnotherFile) {
    EXPECT_EQ(Path().string(), u"");
    Path const path(u"//a///b/../\u00e9//");
    EXPECT_EQ(path.string(), u"/a/b/../\u00e9/");
    EXPECT_EQ(FileSystemService::nativeForm(path), "/a/b/../\xC3\xA9/");
    EXPECT_EQ(error_text<std::invalid_argument>([] { Path(std::u16string(u"/a\0b", 4)); }),
              "a path must not hold a NUL: \"/a\" is followed by one");
    EXPECT_THROW(Path(u"/\xD800"), TextConversionError);
}

TEST(FileSystemService, TellsParents) {
    Rows<std::u16string, std::u16string> const rows = {
        {u"/a/b/c", u"/a/b"}, {u"/a/b/c//", u"/a/b"}, {u"/a//b", u"/a"}, {u"a/b", u"a"},
        {u"/a", u"/"},        {u"//a/", u"/"},        {u"/", u""},       {u"//", u""},
        {u"a", u""},          {u"a/", u""},           {u"", u""},        {u"a/..", u"a"}};
    for (auto const& [path, parent] : rows) {
        EXPECT_EQ(FileSystemService::parentPath(path), parent) << TextConversion::toUtf8(path);
    }
    EXPECT_EQ(FileSystemService::concatenatePath(Path(u"/a/"), u"b").string(), u"/a/b");
    EXPECT_EQ(FileSystemService::concatenatePath(Path(u"/"), u"b").string(), u"/b");
    EXPECT_EQ(FileSystemService::concatenatePath(Path(), u"b").string(), u"b");
}

TEST(FileSystemService, KnowsTheDirectoryForTemporaryFiles) {
    Rows<std::optional<std::string>, std::u16string> const rows = {
        {std::nullopt, u"/tmp"}, {"", u"/tmp"},  {"/not/there//", u"/not/there"}, {"/", u""},
        {"/\xFF", u"/tmp"},      {"rel", u"rel"}};
    for (auto const& [value, expected] : rows) {
        auto const variable = with_variable("TMPDIR", value);
        EXPECT_EQ(FileSystemService::tempDirectory(), expected) << PrintToString(value);
    }
}

// Whoever reads on behind the end of a pipe takes another writer's lines for the same file's.
TEST(InputFileStream, EndsForGood) {
    TemporaryDirectory const directory;
    ASSERT_EQ(::mkfifo((directory / "pipe").c_str(), 0600), 0);
    auto const write = [&](char const* text) { write_file(directory / "pipe", text); };
    std::thread writer(write, "a=1\nb");
    InputFileStream stream(Path(utf16(directory / "pipe")));
    writer.join();
    std::string_view line;
    EXPECT_TRUE(stream.readLine(line) && line == "a=1");
    EXPECT_TRUE(stream.readLine(line) && line == "b");
    std::thread(write, "other").join();
    EXPECT_FALSE(stream.readLine(line)) << line;
}

// Signals and the pipe's size make the system take the text in parts, and nothing at times.
TEST(OutputFileStream, WritesAllOfAText) {
    TemporaryDirectory const directory;
    ASSERT_EQ(::mkfifo((directory / "pipe").c_str(), 0600), 0);
    std::string const text = std::string(3'000'000, 'x') + "\n";
    auto const first_signal = signal_count.load();
    std::string read;
    std::thread reader([&] {
        std::ifstream stream(directory / "pipe");
        while (signal_count - first_signal < 20) {
            std::this_thread::yield();
        }
        read.assign(std::istreambuf_iterator<char>(stream), {});
    });
    {
        OutputFileStream stream(Path(utf16(directory / "pipe")));
        auto const signals = with_signals();
        stream.write(text);
    }
    reader.join();
    EXPECT_TRUE(read == text) << read.size();
}

TEST(FileStreams, AreNotInheritedByPrograms) {
    TemporaryDirectory const directory;
    Path const path(utf16(directory / "file"));
    auto const mask = ::umask(007);
    OutputFileStream const output(path);
    ::umask(mask);
    InputFileStream const input(path);
    ASSERT_TRUE(input.isOpen() && output.isOpen());
    EXPECT_EQ(fs::status(directory / "file").permissions(), fs::perms(0660));
    auto const listing = "ls -l /proc/self/fd | grep -q " + (directory / "file").native();
    EXPECT_EQ(WEXITSTATUS(std::system(listing.c_str())), 1);
}

TEST(DiagnosticChannel, JoinsThePiecesOfARecordWhileItAndTheCoreAreOn) {
    DiagnosticChannel channel("test");
    RecordSink sink("test", 8 | 1);
    std::u16string const text = std::u16string(100'000, u'\u20ac') + u"\U0001F600";
    // The core's own conversion would not come back from a text that ends in half a pair.
    channel.write(Severity::details, {u"not looked at \xD800"});
    boost::log::core::get()->set_logging_enabled(false);
    channel.write(Severity::changes, {u"not looked at \xD800"});
    boost::log::core::get()->set_logging_enabled(true);
    for (std::u16string const malformed : {u"a\xDC00", u"a\xD800"}) {
        auto const write = [&] { channel.write(Severity::changes, {" x=", malformed}); };
        EXPECT_EQ(error_text<TextConversionError>(write),
                  "text is not UTF-16: malformed at offset 1");
    }
    channel.write(Severity::changes, {text});
    DiagnosticChannel::setEnabledSeverities("test", 4);
    channel.write(Severity::changes, {"off"});
    channel.write(Severity::details, {" a=", u"\u00e9", std::string_view("\0b", 2), true, false});
    channel.write(Severity::details, {});
    DiagnosticChannel::setEnabledSeverities("test", 0);
    channel.write(Severity::details, {"off"});
    EXPECT_THAT(sink.take(), ElementsAre("8:" + TextConversion::toUtf8(text),
                                         std::string("4: a=\xC3\xA9\0btruefalse", 18), "4:"));
}

TEST(DiagnosticChannel, IsFoundByItsNameWhileItLives) {
    auto const set_unknown = [] { DiagnosticChannel::setEnabledSeverities("nobody", 4); };
    {
        DiagnosticChannel first("test");
        DiagnosticChannel second("test::more");
        DiagnosticChannel namesake("test");
        DiagnosticChannel::setEnabledSeverities("test", 8);
        EXPECT_TRUE(first.isEnabled(Severity::changes) && namesake.isEnabled(Severity::changes));
        EXPECT_FALSE(first.isEnabled(Severity::details) || second.isEnabled(Severity::changes));
        auto const text = error_text<std::invalid_argument>(set_unknown);
        EXPECT_THAT(text, HasSubstr("there is no diagnostic channel \"nobody\", only "));
        EXPECT_THAT(text, HasSubstr("\"test\", \"test::more\", \"test\""));
        EXPECT_THAT(text, HasSubstr("\"install::cpputil::InputFileParser\""));
    }
    EXPECT_THAT(error_text<std::invalid_argument>(set_unknown), ::testing::Not(HasSubstr("test")));
}

TEST(PlatformInfo, FormatsLocalTime) {
    auto zone = with_variable("TZ", "XYZ-5:30");
    ::tzset();
    std::time_t const time = 1772508907;  // 3 March 2026, 3:35:07 in universal time
    EXPECT_EQ(PlatformInfo::formatTime(time, "%b %d, %Y %H:%M:%S"), "Mar 03, 2026 09:05:07");
    EXPECT_EQ(PlatformInfo::formatTime(time, "\xC3\xA9%B"), "\xC3\xA9March");
    EXPECT_EQ(PlatformInfo::formatTime(time, ""), "");
    EXPECT_EQ(PlatformInfo::formatTime(time, std::string(300, 'x') + "%y"),
              std::string(300, 'x') + "26");
    EXPECT_THROW(PlatformInfo::formatTime(std::numeric_limits<std::time_t>::max(), "%Y"),
                 std::system_error);
    EXPECT_THROW(PlatformInfo::formatTime(time, std::string("%Y\0", 3)), std::invalid_argument);
    zone.reset();
    ::tzset();
    auto const before = std::time(nullptr);
    auto const now = std::stoll(PlatformInfo().currentTime("%s"));
    EXPECT_TRUE(before <= now && now <= std::time(nullptr)) << now;
}

}  // namespace
}  // namespace install::cpputil
