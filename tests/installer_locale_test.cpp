#include "utilities/installer_locale.h"

#include "tests/files.h"

namespace install::cpputil::installer_locale {
namespace {

using namespace tests;

TEST(InstallerLocale, CombinesLanguageAndRegion) {
    struct Row {
        std::optional<std::string> lc_all, lc_messages, lang;
        std::string locale;
    };
    auto const unset = std::nullopt;
    Row const rows[] = {
        {unset, unset, unset, "en_US"},        {unset, unset, "de_AT.UTF-8@euro", "de_AT"},
        {unset, "fr_CA", "de_AT", "fr_CA"},    {"", "fr@x", "de_AT", "fr_"},
        {"_CH.utf8", "fr_CA", "de_AT", "_CH"}, {"C.UTF-8", "fr_CA", "de_AT", "en_US"},
        {"POSIX", "fr_CA", "de_AT", "en_US"},  {".UTF-8", "fr_CA", "de_AT", "_"}};
    for (auto const& row : rows) {
        Undo const variables[] = {with_variable("LC_ALL", row.lc_all),
                                  with_variable("LC_MESSAGES", row.lc_messages),
                                  with_variable("LANG", row.lang)};
        EXPECT_EQ(TextConversion::toUtf8(getLocale()), row.locale);
    }
}

}  // namespace
}  // namespace install::cpputil::installer_locale
