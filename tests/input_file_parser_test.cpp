#include "utilities/input_file_parser.h"

#include "tests/support.h"

namespace install::cpputil {
namespace {

using namespace testing;

constexpr char const* channel_name = "install::cpputil::InputFileParser";

/// Shows a map in one line: key=value, and key:[name][name] for lists; entries end in ";".
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
    std::string parsed(std::u16string const& path) { return shown(parser_.parse(path)); }
    std::string parsed_text(std::string_view content) {
        write_file(directory_ / "inputs.txt", content);
        return parsed(path_);
    }
    std::string converted(std::string const& text) {
        return shown(parser_.convertInputsToPropertyMap(text));
    }

    InputFileParser parser_;
    TemporaryDirectory directory_;
    std::u16string const path_ = utf16(directory_ / "inputs.txt");
};

TEST_F(InputFile, BecomesMap) {
    Rows<std::string, std::string> const rows = {
        {"", ""},
        {"\n \t\r\n\f\v\n  # inputs for this run\n#x=y\nno form at all\n\xFF\n==value\n= =\n", ""},
        // Assignments.
        {"Install_Dir = /opt/app\nmode==Full Run # fast",
         "install_dir=/opt/app;mode=Full Run # fast;"},
        {"\t Mode \v=\f X Y \r\nn=1\r", "mode=X Y;n=1;"},
        {"Flag=\nFlag2===\nFlag3 = = x\nMode=1\nMODE = 2\n", "flag=;flag2=;flag3== x;mode=2;"},
        {"a.b=c\na=b=c\nproduct.x=1\nproduct=x\nPRODUCT = x\n", "a=b=c;a.b=c;product.x=1;"},
        {"\xC3\x89Z=\xC3\x89 \xF0\x9F\x98\x80\n", "\xC3\x89z=\xC3\x89 \xF0\x9F\x98\x80;"},
        {"install_dir=1\ninstall2=2\ninstall=3", "install=3;install2=2;install_dir=1;"},
        {"\xEF\xBB\xBF# key=1\n", "\xEF\xBB\xBF# key=1;"},
        // Product lines.
        {"product.Alpha_One\nproduct.B\nproduct.B\n", "product:[Alpha One][B][B];"},
        {"product...Alpha\nproduct. _Beta_ \n.product\n",
         ":[Alpha][ Beta ][product];product:[Alpha][ Beta ];"},
        {"My Product . product.x\n", "my product:[product.x];"},
        {"product\nproduct.\nproduct...\na product\n\xFF product\nProduct.x\nPRODUCT.x", ""},
        // Both.
        {"tools=y\ntools.product_a\n", "tools:[product a];"},
        {"tools.product_a\ntools=y\nproduct.A\nproduct=y\n", "product:[product a][A];tools=y;"},
        {"t.product1\nproduct.B\nt=y\nproduct.C\nt.product2\nproduct.D\nu.product3\nu=z",
         "product:[product1][B][C][product2][D];t:[product1][B][C][product2];u=z;"}};
    for (auto const& [content, expected] : rows) {
        EXPECT_EQ(parsed_text(content), expected) << "input: " << content;
    }
}

TEST_F(InputFile, HandsOnKeptLinesAndRecordsThem) {
    write_file(directory_ / "inputs.txt",
               "  b = 1 # note \r\n\n# x\n\t#y\n plain line\nz\xFF\n\v\f\nlast");
    std::string const kept = "b = 1 # note\nplain line\nz\xFF\nlast\n";
    EXPECT_EQ(parser_.getUserInputsFromFile(path_), kept);
    RecordSink sink(channel_name);
    EXPECT_EQ(parser_.getUserInputsFromFile(path_), kept);
    EXPECT_THAT(sink.take(), ElementsAre("4: line=b = 1 # note", "4: line=plain line",
                                         "4: line=z\xFF", "4: line=last"));
    DiagnosticChannel::setEnabledSeverities(channel_name, 8);
    parser_.getUserInputsFromFile(path_);
    EXPECT_THAT(sink.take(), IsEmpty());
}

TEST_F(InputFile, IsMadeOfStepsThatAnswerByThemselves) {
    // Text is read up to its last line feed.
    EXPECT_EQ(converted("a=1\n#b = 2\nc=3"), "#b=2;a=1;");
    EXPECT_EQ(converted(""), "");
    // A name of blanks is a name; only a line without any text behind its dots has none.
    EXPECT_EQ(converted("product. \nproduct.\nproduct.b\n"), "product:[][b];");
    EXPECT_EQ(parser_.trim(" \t\r\n\f\va b\v\f\n\r\t "), "a b");
    EXPECT_EQ(parser_.trim(" \v") + parser_.ltrim("\t") + parser_.rtrim("\f") + parser_.trim(""),
              "");
    EXPECT_EQ(parser_.ltrim("\v\fx ") + parser_.rtrim(" x \r"), "x  x");
    EXPECT_EQ(parser_.stringToLowerCase("@Install_DirZ[\xC3\x89"), "@install_dirz[\xC3\x89");
    PropertyMap map;
    parser_.updateMap(map, u"k", std::vector<std::u16string>{u"a", u"b"});
    parser_.updateMap(map, u"", u"x");
    EXPECT_EQ(shown(map), "=x;k:[a][b];");
    parser_.updateMap(map, u"k", u"y");
    EXPECT_EQ(shown(map), "=x;k=y;");
    std::u16string text = u"_a_ _";
    parser_.removeUnderscores(text);
    EXPECT_EQ(text, u" a   ");
}

TEST_F(InputFile, MissingIsAnErrorAndUnreadableIsEmpty) {
    RecordSink sink(channel_name);
    deny_access(write_file(directory_ / "inputs.txt", "a=1\n"));
    for (auto const& path : {std::u16string(), utf16(directory_ / "none"), path_ + u"/below"}) {
        EXPECT_EQ(error_text<std::runtime_error>([&] { parser_.parse(path); }),
                  "input file does not exist!");
    }
    EXPECT_EQ(parsed(utf16(directory_ / "")), "");
    auto user = as_user();
    EXPECT_EQ(parsed(path_), "");
    user.reset();
    deny_access(directory_ / "");
    user = as_user();
    EXPECT_THROW(parsed(path_), fs::filesystem_error);
    EXPECT_THAT(sink.take(), IsEmpty());
}

TEST_F(InputFile, MalformedTextGivesNoMap) {
    for (auto const* const content :
         {"a=1\nb\xC0\x80=1\n", "b=\x80\n", "=\xFF\n", "product=\xFF\n", "t.product\xFF\nt=y\n",
          "product.\xED\xA0\x80\n", "\xF5product.x\n"}) {
        EXPECT_THROW(parsed_text(content), TextConversionError) << content;
    }
    EXPECT_THROW(parsed(u"/tmp/\xD800"), TextConversionError);
    EXPECT_THROW(parsed(std::u16string(u"/etc/passwd\0x", 13)), std::invalid_argument);
}

TEST_F(InputFile, MayBeAnythingThatCanBeRead) {
    EXPECT_EQ(parsed_text({"a=x\0y\n", 6}), std::string("a=x\0y;", 6));

    // Lines that end where the stream's buffer does, or that it must grow for.
    for (auto const length : {32765U, 32766U, 32767U, 65534U, 65535U, 100'000'000U}) {
        std::string const value(length, 'v');
        EXPECT_TRUE(parsed_text("a=" + value + "\n#=1\nb=1") == "a=" + value + ";b=1;") << length;
    }

    // A pipe that is written bit by bit, so that lines arrive in parts.
    auto const pipe = directory_ / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    std::thread writer([&] {
        std::ofstream stream(pipe);
        for (char const c : std::string("first = 1\nsecond=2\r\nproduct.x")) {
            stream << c << std::flush;
        }
    });
    EXPECT_EQ(parsed(utf16(pipe)), "first=1;product:[x];second=2;");
    writer.join();
    // A read that fails ends the file.
    EXPECT_EQ(parsed(u"/proc/self/mem"), "");

    // Entries of /proc claim to be empty.
    auto const maps = parser_.getUserInputsFromFile(u"/proc/self/maps");
    EXPECT_GT(maps.size(), 4096U);
    EXPECT_NE(maps.find("libinstall_cpputil.so"), std::string::npos);
}

// Storing the list at each line takes minutes here, far beyond the time that a test may run.
TEST_F(InputFile, CostsTimeInProportionToItsProductLines) {
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
}  // namespace install::cpputil
