#include "utilities/input_file_parser.h"

#include <fcntl.h>
#include <termios.h>

#include "tests/processes.h"
#include "tests/record_sink.h"

namespace install::cpputil::tests {
namespace {

constexpr char const* channel_name = "install::cpputil::InputFileParser";

/// Returns a map in one line: key=value; for a string and key:[name][name]; for a list.
std::string shown(PropertyMap const& map) {
    std::string result;
    for (auto const& [key, value] : map) {
        result += TextConversion::toUtf8(key);
        if (auto const* const text = std::get_if<std::u16string>(&value)) {
            result += "=" + TextConversion::toUtf8(*text);
        } else {
            result += ':';
            for (auto const& name : std::get<std::vector<std::u16string>>(value)) {
                result += "[" + TextConversion::toUtf8(name) + "]";
            }
        }
        result += ';';
    }
    return result;
}

class InputFile : public ::testing::Test {
protected:
    struct Row {
        std::string content, map;
    };

    std::string parsed(std::u16string const& path) { return shown(parser_.parse(path)); }
    std::string parsedText(std::string_view content) {
        write_file(directory_ / "inputs.txt", content);
        return parsed(path_);
    }
    void expectMaps(std::initializer_list<Row> rows) {
        for (auto const& row : rows) {
            EXPECT_EQ(parsedText(row.content), row.map) << "input: " << row.content;
        }
    }

    InputFileParser parser_;
    TemporaryDirectory directory_;
    std::u16string const path_ = utf16(directory_ / "inputs.txt");
};

TEST_F(InputFile, SkipsBlankCommentAndOtherLines) {
    expectMaps(
        {{"", ""},
         {"\n \t\r\n\f\v\n  # a comment\n#x=y\nno form at all\n\xFF\n", ""},
         {"\xEF\xBB\xBF# key=1\n", "\xEF\xBB\xBF# key=1;"}});  // Begins with a byte-order mark.
}

TEST_F(InputFile, StoresAssignments) {
    expectMaps({
        {"Install_Dir = /opt/app\n", "install_dir=/opt/app;"},
        {"mode==Full Run # fast\n", "mode=Full Run # fast;"},
        {"\t Mode \v=\f X Y \r\n", "mode=X Y;"},
        {"last=1\r", "last=1;"},
        {"flag=\n", "flag=;"},
        {"flag===\n", "flag=;"},
        {"flag = = x\n", "flag== x;"},
        {"a=b=c\n", "a=b=c;"},
        {"a.b=c\n", "a.b=c;"},
        {"product.x=1\n", "product.x=1;"},
        {"\xC3\x89Z=\xC3\x89 \xF0\x9F\x98\x80\n", "\xC3\x89z=\xC3\x89 \xF0\x9F\x98\x80;"},
        {{"a=x\0y\n", 6}, {"a=x\0y;", 6}},
    });
}

TEST_F(InputFile, StoresNothingForAnEmptyKeyOrForProduct) {
    expectMaps({{"==value\n", ""}, {"= =\n", ""}, {"product=x\n", ""}, {"PRODUCT = x\n", ""}});
}

TEST_F(InputFile, StoresProductNamesAsAList) {
    expectMaps(
        {{"product.Alpha_One\nproduct.B\nproduct.B\n", "product:[Alpha One][B][B];"},
         {"product...Alpha\nproduct. _Beta_ \n.product\n",
          ":[Alpha][ Beta ][product];product:[Alpha][ Beta ];"},
         {"My Product . product.x\n", "my product:[product.x];"},
         // Lines without a name, and lines that are not product lines.
         {"product\nproduct.\nproduct...\na product\n\xFF product\nProduct.x\nPRODUCT.x", ""}});
    // In text that was not trimmed, a blank after "product." counts as a name, which is then empty.
    EXPECT_EQ(shown(parser_.convertInputsToPropertyMap("product. \n#b = 2\nc=3")),
              "#b=2;product:[];");
}

TEST_F(InputFile, KeepsTheLastLineForAKey) {
    expectMaps(
        {{"Mode=1\nMODE = 2\n", "mode=2;"},
         {"install_dir=1\ninstall2=2\ninstall=3", "install=3;install2=2;install_dir=1;"},
         {"tools=y\ntools.product_a\n", "tools:[product a];"},
         {"tools.product_a\ntools=y\nproduct.A\nproduct=y\n", "product:[product a][A];tools=y;"},
         {"t.product1\nproduct.B\nt=y\nproduct.C\nt.product2\nproduct.D\nu.product3\nu=z",
          "product:[product1][B][C][product2][D];t:[product1][B][C][product2];u=z;"}});
}

TEST_F(InputFile, ReturnsAndRecordsItsInputLines) {
    write_file(directory_ / "inputs.txt",
               "  b = 1 # note \r\n\n# x\n\t#y\n plain line\nz\xFF\n\v\f\nlast");
    std::string const lines = "b = 1 # note\nplain line\nz\xFF\nlast\n";
    RecordSink sink(channel_name);
    EXPECT_EQ(parser_.getUserInputsFromFile(path_), lines);
    EXPECT_THAT(sink.take(), ElementsAre("4: line=b = 1 # note", "4: line=plain line",
                                         "4: line=z\xFF", "4: line=last"));
    DiagnosticChannel::setEnabledSeverities(channel_name, 8);
    parser_.getUserInputsFromFile(path_);
    EXPECT_THAT(sink.take(), IsEmpty());
}

TEST_F(InputFile, TrimsAndReplacesCharacters) {
    EXPECT_EQ(parser_.trim(" \t\r\n\f\va b\v\f\n\r\t "), "a b");
    EXPECT_EQ(parser_.trim(" \v"), "");
    EXPECT_EQ(parser_.rtrim("\f"), "");
    EXPECT_EQ(parser_.ltrim("\v\fx "), "x ");
    EXPECT_EQ(parser_.rtrim(" x \r"), " x");
    EXPECT_EQ(parser_.stringToLowerCase("@A_DirZ[\xC3\x89"), "@a_dirz[\xC3\x89");
    std::u16string text = u"_a_ _";
    parser_.removeUnderscores(text);
    EXPECT_EQ(text, u" a   ");
}

TEST_F(InputFile, UpdatesMaps) {
    PropertyMap map;
    parser_.updateMap(map, u"k", std::vector<std::u16string>{u"a", u"b"});
    parser_.updateMap(map, u"", u"x");
    EXPECT_EQ(shown(map), "=x;k:[a][b];");
    parser_.updateMap(map, u"k", u"y");
    EXPECT_EQ(shown(map), "=x;k=y;");
}

TEST_F(InputFile, ThrowsIfTheFileIsMissing) {
    RecordSink sink(channel_name);
    write_file(directory_ / "inputs.txt", "a=1\n");
    fs::create_symlink("none", directory_ / "dangling");
    fs::create_symlink("circular", directory_ / "circular");
    for (auto const& path : {std::u16string(), utf16(directory_ / "none"), path_ + u"/below",
                             utf16(directory_ / "dangling"), utf16(directory_ / "circular")}) {
        EXPECT_EQ(error_text<std::runtime_error>([&] { parser_.parse(path); }),
                  "input file does not exist!")
            << PrintToString(path);
    }
    deny_access(directory_ / "");
    auto const user = as_user();
    EXPECT_THROW(parsed(path_), fs::filesystem_error);
    EXPECT_THAT(sink.take(), IsEmpty());
}

TEST_F(InputFile, YieldsAnEmptyMapIfUnreadable) {
    EXPECT_EQ(parsed(utf16(directory_ / "")), "");
    EXPECT_EQ(parsed(u"/proc/self/mem"), "");  // Opens, but the first read fails.
    deny_access(write_file(directory_ / "inputs.txt", "a=1\n"));
    auto const user = as_user();
    EXPECT_EQ(parsed(path_), "");
}

TEST_F(InputFile, RejectsMalformedText) {
    for (auto const* const content :
         {"a=1\nb\xC0\x80=1\n", "b=\x80\n", "=\xFF\n", "product=\xFF\n", "t.product\xFF\nt=y\n",
          "product.\xED\xA0\x80\n", "\xF5product.x\n"}) {
        EXPECT_THROW(parsedText(content), TextConversionError) << content;
    }
    EXPECT_THROW(parsed(u"/tmp/\xD800"), TextConversionError);
    EXPECT_THROW(parsed(std::u16string(u"/etc/passwd\0x", 13)), std::invalid_argument);
}

// Lines that end where one of the stream's buffers ends, and lines that are longer than a buffer.
TEST_F(InputFile, ReadsLinesOfAnyLength) {
    for (auto const length : {4092U, 4093U, 4094U, 4095U, 65532U, 65533U, 65534U, 65535U, 131068U,
                              131069U, 131070U, 10'000'000U}) {
        std::string const value(length, 'v');
        EXPECT_TRUE(parsedText("a=" + value + "\n#=1\nb=1") == "a=" + value + ";b=1;") << length;
    }
}

// The lines arrive in parts, and signals interrupt the calls that wait for the writer.
TEST_F(InputFile, ReadsFromAPipe) {
    auto const pipe = directory_ / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    auto const signals = with_signals();
    std::thread writer([&] {
        await_signals(3);
        std::ofstream stream(pipe);
        await_signals(6);
        for (char const c : std::string("first = 1\nsecond=2\r\nproduct.x")) {
            stream << c << std::flush;
        }
    });
    EXPECT_EQ(parsed(utf16(pipe)), "first=1;product:[x];second=2;");
    writer.join();
}

// Reading a terminal fails while another process group is in the foreground.
TEST_F(InputFile, DropsALineCutShortByAReadError) {
    int const terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_EQ(::grantpt(terminal) + ::unlockpt(terminal), 0);
    std::string const name = ::ptsname(terminal);
    auto const child = [&] {
        ::setsid();
        int const input = ::open(name.c_str(), O_RDWR);  // The controlling terminal.
        termios settings = {};
        ::tcgetattr(input, &settings);
        ::cfmakeraw(&settings);
        ::tcsetattr(input, TCSANOW, &settings);
        ::signal(SIGTTIN, SIG_IGN);
        RecordSink sink(channel_name);
        auto const other_group = start_child([] { ::pause(); });
        ::setpgid(other_group, other_group);
        sink.callForEach(
            [&](std::string const&) { EXPECT_EQ(::tcsetpgrp(input, other_group), 0); });
        std::string const part = "a=1\ninstall_dir=/op";
        EXPECT_EQ(::write(terminal, part.data(), part.size()), part.size());
        EXPECT_EQ(parsed(TextConversion::fromUtf8(name)), "a=1;");
    };
    EXPECT_EQ(status_of(start_child(child)), 0);
    ::close(terminal);
}

TEST_F(InputFile, KeepsTheLastLineOfEachOfManyKeys) {
    // Keys that differ early, late and in bytes that are not ASCII.
    Strings const prefixes = {"", std::string(40, 'k'), "\xEF\xBF\xBF", "\xF0\x9F\x98\x80"};
    std::string text;
    PropertyMap expected;
    for (unsigned number = 0; number != 12'000; ++number) {
        auto const key = prefixes[number % 4] + std::to_string(number * 7 % 5'000);
        text += key + '=' + std::to_string(number) + '\n';
        expected[TextConversion::fromUtf8(key)] = TextConversion::fromUtf8(std::to_string(number));
    }
    EXPECT_TRUE(parser_.convertInputsToPropertyMap(text) == expected);
}

// Storing the list at each of these lines would take minutes, longer than a test may run.
TEST_F(InputFile, DoesNotTakeQuadraticTimeForProductLines) {
    constexpr std::size_t count = 240'000;
    std::string text;
    for (std::size_t number = 0; number != count; ++number) {
        text += ".product_" + std::to_string(number) + '\n';
    }
    auto const map = parser_.convertInputsToPropertyMap(text);
    auto const& names = std::get<std::vector<std::u16string>>(map.at(u""));
    EXPECT_TRUE(names.size() == count && names.back() == u"product 239999") << names.size();
}

}  // namespace
}  // namespace install::cpputil::tests
