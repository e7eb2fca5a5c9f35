#include "utilities/version_comparator.h"

#include "tests/files.h"

namespace install::cpputil::tests {
namespace {

int compare(std::u16string const& first, std::u16string const& second) {
    return VersionComparator().compareVersionNumbers(first, second);
}

TEST(VersionComparator, ComparesComponentsAsNumbers) {
    struct Row {
        std::u16string first, second;
        int order;
    };
    Row const rows[] = {
        {u"1.10", u"1.9", 1},   {u"1", u"1.0.0", 0},  {u"1.2.3", u"1.2", 1},
        {u"1.2", u"1.2.-1", 1}, {u"1.02", u"1.2", 0}, {u"+3", u" 3", 0},
        {u"2b", u"2", 0},       {u"", u"", 0},        {u"", u"0", 0},
        {u"", u"1", -1},        {u"1.2.", u"1.2", 0}, {u"9.14.2", u"9.9", 1},
        {u"1.0.0.1", u"1", 1},  {u"1.x", u"2.x", -1}, {u"-2147483648", u"2147483647", -1}};
    for (auto const& row : rows) {
        EXPECT_EQ(compare(row.first, row.second), row.order) << PrintToString(row.first);
        EXPECT_EQ(compare(row.second, row.first), -row.order) << PrintToString(row.first);
    }
    EXPECT_THAT(VersionComparator().tokenizeString(".5..2."), ElementsAre("", "5", "", "2"));
}

TEST(VersionComparator, RejectsMalformedComponents) {
    // The component of the first version is converted first.
    for (auto const& [first, second] : {std::pair(u"1..2", u"1.0.2"),
                                        {u"rc1", u"1"},
                                        {u"1", u"rc1"},
                                        {u"x", u"2147483648"},
                                        {u".", u""}}) {
        EXPECT_EQ(
            error_text<std::invalid_argument>([&, &a = first, &b = second] { compare(a, b); }),
            "stoi");
    }
    EXPECT_EQ(error_text<std::out_of_range>([] { compare(u"2147483648", u"x"); }), "stoi");
    EXPECT_THROW(compare(u"1", u"\xDC00"), TextConversionError);
}

}  // namespace
}  // namespace install::cpputil::tests
