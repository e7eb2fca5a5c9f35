#include "utilities/input_file_parser.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <thread>

#include "tests/support.h"

namespace install::cpputil {
namespace {

using namespace testing;
using ::testing::ElementsAre;
using Record = Records::value_type;

constexpr char const* channel_name = "install::cpputil::InputFileParser";

/// Shows a map in one line: key=value, and key:[name][name] for lists; entries end in ";".
std::string shown(PropertyMap const& map) {
    std::string result;
    for (auto const& [key, value] : map) {
        result += TextConversion::toUtf8(key);
        if (auto const* const text = std::get_if<std::u16string>(&value)) {
            result += "=" + TextConversion::toUtf8(*text) + ";";
            continue;
        }
        result += ':';
        for (auto const& name : std::get<std::vector<std::u16string>>(value)) {
            result += "[" + TextConversion::toUtf8(name) + "]";
        }
        result += ';';
    }
    return result;
}

class InputFile : public ::testing::Test {
protected:
    std::u16string file_with(std::string_view content) const {
        write_file(directory_ / "inputs.txt", content);
        return utf16(directory_ / "inputs.txt");
    }
    std::string parsed(std::string_view content) const {
        return shown(InputFileParser().parse(file_with(content)));
    }

    TemporaryDirectory directory_;
};

TEST_F(InputFile, BecomesMap) {
    struct {
        std::string_view content;
        std::string expected;
    } const rows[] = {
        {"", ""},
        {"\n \t\r\n\f\v\n  # inputs for this run\n#x=y\n", ""},
        // Assignments.
        {"Install_Dir = /opt/app\n", "install_dir=/opt/app;"},
        {"mode==Full Run # fast", "mode=Full Run # fast;"},
        {"\t Mode \v=\f X Y \r\nn=1\r", "mode=X Y;n=1;"},
        {"Mode=1\nMODE = 2\n", "mode=2;"},
        {"Flag=\nFlag2===\nFlag3 = = x\n", "flag=;flag2=;flag3== x;"},
        {"==value\n= =\n", ""},
        {"a.b=c\na=b=c\n", "a=b=c;a.b=c;"},
        {"\xC3\x89T\xC3\x89=\xC3\x89 \xF0\x9F\x98\x80\n",
         "\xC3\x89t\xC3\x89=\xC3\x89 \xF0\x9F\x98\x80;"},
        {"install_dir=1\ninstall2=2\ninstall=3", "install=3;install2=2;install_dir=1;"},
        {"no form at all\n\xFF\n", ""},
        {"\xEF\xBB\xBF# key=1\n", "\xEF\xBB\xBF# key=1;"},
        // Product lines.
        {"product.Alpha_One\nproduct.Beta\n", "product:[Alpha One][Beta];"},
        {"product.A\nproduct.A\n", "product:[A][A];"},
        {"product...Alpha\nproduct. _Beta_ \n", "product:[Alpha][ Beta ];"},
        {"product.Alpha\nextra_product.Beta\n", "extra_product:[Alpha][Beta];product:[Alpha];"},
        {"My Product . product.x\n", "my product:[product.x];"},
        {".product\n", ":[product];"},
        {"Product.Base_Tools\nPRODUCT.x", ""},
        {"product\nproduct.\nproduct...\na product\n\xFF product", ""},
        // Both.
        {"product=x\nPRODUCT = x\n", ""},
        {"product.x=1\n", "product.x=1;"},
        {"tools=y\ntools.product_a\n", "tools:[product a];"},
        {"tools.product_a\ntools=y\n", "tools=y;"},
        {"product.A\nproduct=y\n", "product:[A];"},
        {"t.product1\nproduct.B\nt=y\nproduct.C\nt.product2\nproduct.D\nu.product3\nu=z",
         "product:[product1][B][C][product2][D];t:[product1][B][C][product2];u=z;"},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(parsed(row.content), row.expected) << "input: " << row.content;
    }
}

TEST_F(InputFile, HandsOnKeptLinesAndRecordsThem) {
    InputFileParser const parser;
    auto const path = file_with("  b = 1 # note \r\n\n# x\n\t#y\n plain line\nz\xFF\n\v\f\nlast");
    EXPECT_EQ(parser.getUserInputsFromFile(path), "b = 1 # note\nplain line\nz\xFF\nlast\n");

    RecordSink sink(channel_name);
    parser.getUserInputsFromFile(path);
    EXPECT_THAT(sink.take(),
                ElementsAre(Record{4, " line=b = 1 # note"}, Record{4, " line=plain line"},
                            Record{4, " line=z\xFF"}, Record{4, " line=last"}));
    DiagnosticChannel::setEnabledSeverities(channel_name, 8);
    parser.getUserInputsFromFile(path);
    EXPECT_THAT(sink.take(), ElementsAre());
}

TEST(InputText, IsReadUpToItsLastLineFeed) {
    InputFileParser parser;
    EXPECT_EQ(shown(parser.convertInputsToPropertyMap("a=1\n#b = 2\nc=3")), "#b=2;a=1;");
    EXPECT_EQ(shown(parser.convertInputsToPropertyMap("")), "");
    // A name of blanks is a name; only a line without any text behind its dots has none.
    EXPECT_EQ(shown(parser.convertInputsToPropertyMap("product. \nproduct.\nproduct.b\n")),
              "product:[][b];");
}

TEST(InputSteps, AnswerByThemselves) {
    InputFileParser parser;
    EXPECT_EQ(parser.trim(" \t\r\n\f\va b\v\f\n\r\t "), "a b");
    EXPECT_EQ(parser.trim(" \v") + parser.ltrim("\t") + parser.rtrim("\f") + parser.trim(""), "");
    EXPECT_EQ(parser.ltrim("\v\fx "), "x ");
    EXPECT_EQ(parser.rtrim(" x \r"), " x");
    EXPECT_EQ(parser.stringToLowerCase("@Install_DirZ[\xC3\x89"), "@install_dirz[\xC3\x89");
    PropertyMap map;
    parser.updateMap(map, u"k", std::vector<std::u16string>{u"a", u"b"});
    parser.updateMap(map, u"", u"x");
    EXPECT_EQ(shown(map), "=x;k:[a][b];");
    parser.updateMap(map, u"k", u"y");
    EXPECT_EQ(shown(map), "=x;k=y;");
    std::u16string text = u"_a_ _";
    parser.removeUnderscores(text);
    EXPECT_EQ(text, u" a   ");
}

TEST_F(InputFile, MissingIsAnErrorAndUnreadableIsEmpty) {
    InputFileParser parser;
    RecordSink sink(channel_name);
    for (std::u16string const& path :
         {std::u16string(), utf16(directory_ / "none"), file_with("a=1\n") + u"/below"}) {
        EXPECT_EQ(error_text<std::runtime_error>([&] { parser.parse(path); }),
                  "input file does not exist!")
            << TextConversion::toUtf8(path);
    }
    EXPECT_EQ(shown(parser.parse(utf16(directory_ / ""))), "");

    auto const path = file_with("a=1\n");
    std::filesystem::permissions(directory_ / "inputs.txt", std::filesystem::perms::none);
    {
        ScopedUser const user;
        EXPECT_EQ(shown(parser.parse(path)), "");
    }
    std::filesystem::permissions(directory_ / "", std::filesystem::perms::none);
    {
        ScopedUser const user;
        EXPECT_THROW(parser.parse(path), std::filesystem::filesystem_error);
    }
    EXPECT_THAT(sink.take(), ElementsAre());
}

TEST_F(InputFile, MalformedTextGivesNoMap) {
    for (std::string const content : {"a=1\nb\xC0\x80=1\n", "b=\x80\n", "=\xFF\n", "product=\xFF\n",
                                      "product.\xED\xA0\x80\n", "\xF5product.x\n"}) {
        EXPECT_THROW(parsed(content), TextConversionError) << content;
    }
    EXPECT_THROW(InputFileParser().parse(u"/tmp/\xD800"), TextConversionError);
    EXPECT_THROW(InputFileParser().parse(std::u16string(u"/etc/passwd\0x", 13)),
                 std::invalid_argument);
}

TEST_F(InputFile, MayBeAnythingThatCanBeRead) {
    std::string const nul("a=x\0y\n", 6);
    EXPECT_EQ(parsed(nul), std::string("a=x\0y;", 6));

    // Lines that end where the stream's buffer does, or that it must grow for.
    for (auto const length : {32765U, 32766U, 32767U, 65534U, 65535U, 100'000'000U}) {
        std::string const value(length, 'v');
        EXPECT_TRUE(parsed("a=" + value + "\nb=1") == "a=" + value + ";b=1;") << length;
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
    EXPECT_EQ(shown(InputFileParser().parse(utf16(pipe))), "first=1;product:[x];second=2;");
    writer.join();
    // A read that fails ends the file.
    EXPECT_EQ(shown(InputFileParser().parse(u"/proc/self/mem")), "");

    // Entries of /proc claim to be empty.
    auto const maps = InputFileParser().getUserInputsFromFile(u"/proc/self/maps");
    EXPECT_GT(maps.size(), 4096U);
    EXPECT_NE(maps.find("libinstall_cpputil.so"), std::string::npos);
}

// Storing the list at each line takes minutes here, far beyond the time that a test may run.
TEST(InputText, CostsTimeInProportionToItsProductLines) {
    constexpr std::size_t count = 240'000;
    std::string text;
    for (std::size_t number = 0; number != count; ++number) {
        text += ".product_" + std::to_string(number) + '\n';
    }
    auto const map = InputFileParser().convertInputsToPropertyMap(text);
    auto const& names = std::get<std::vector<std::u16string>>(map.at(u""));
    ASSERT_EQ(names.size(), count);
    EXPECT_EQ(names.back(), u"product 239999");
}

}  // namespace
}  // namespace install::cpputil
