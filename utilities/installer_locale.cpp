#include "utilities/installer_locale.h"

#include "platform/internal/library_channel.h"
#include "platform/system_locale_service.h"
#include "platform/text_conversion.h"

namespace install::cpputil::installer_locale {
namespace {

// Never written to, but programs may enable it by name.
constinit LibraryChannel channel;
LibraryChannel::Lifetime const channel_lifetime(channel, "install::cpputil::InstallerLocale");

}  // namespace

std::u16string getLocale() {
    SystemLocaleService const locale(SystemLocaleService::Category::messages);
    return TextConversion::fromUtf8(locale.language() + "_" + locale.region());
}

}  // namespace install::cpputil::installer_locale
