#include <cstdlib>
#include <limits>
#include <new>

#include "platform/diagnostic_channel.h"
#include "platform/file_system_service.h"
#include "tests/files.h"
#include "utilities/argument_validation.h"
#include "utilities/input_file_parser.h"
#include "utilities/installer_exception.h"
#include "utilities/installer_locale.h"
#include "utilities/interrupt.h"
#include "utilities/logger.h"
#include "utilities/sandbox_workflow_detector.h"
#include "utilities/version_comparator.h"

namespace {

constexpr auto unlimited = std::numeric_limits<std::size_t>::max();

/// The number of allocations of this thread that succeed before one fails.
thread_local std::size_t allocations_left = unlimited;

}  // namespace

// If the operators are inlined, g++ warns that they do not match.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (allocations_left == 0) {
        allocations_left = unlimited;
        throw std::bad_alloc();
    }
    allocations_left -= allocations_left == unlimited ? 0 : 1;
    if (void* const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace install::cpputil::tests {
namespace {

/// Returns whether \p operation throws std::bad_alloc if its first \p successes allocations succeed
/// and the next one fails.
bool fails(std::function<void()> const& operation, std::size_t successes) {
    allocations_left = successes;
    try {
        operation();
    } catch (std::bad_alloc const&) {
        return true;
    }
    allocations_left = unlimited;
    return false;
}

TEST(FailingAllocations, LeaveTheLibraryUnchanged) {
    TemporaryDirectory const directory;
    // Longer than what a string stores without an allocation.
    std::string const text(40, 'v');
    auto const wide_text = TextConversion::fromUtf8(text);
    auto const locale = with_variable("LC_ALL", text + "_US");
    auto const log = (directory / "log").native(), other = (directory / "other").native();
    auto const inputs = write_file(directory / "inputs", text + "=" + text + "\nproduct.x" + text);
    auto const inputs_path = utf16(inputs);
    std::map<std::string, std::string> const args = {{"name", inputs}}, file = {{"name", "rfile"}},
                                             integer = {{"name", "intval"}};
    PropertyValue const list = std::vector<std::u16string>{wide_text, wide_text, u"x"};
    PropertyMap const map = {{u"a", wide_text}, {wide_text, list}};
    PropertyMap changed = map;
    InputFileParser parser;

    std::function<void()> const operations[] = {
        [&] { parser.parse(inputs_path); },
        [&] { parser.updateMap(changed, u"a", list); },
        [&] { parser.updateMap(changed, wide_text + u"new", list); },
        [&] { logger::Logger const replacement(other); },
        [&] { logger::append_message(text); },
        [&] { logger::append_message(wide_text); },
        [&] { logger::append_file(inputs); },
        [&] { validate_args(args, file); },
        [&] { error_text<std::invalid_argument>([&] { validate_args(args, integer); }); },
        [&] { InstallerException(text, text, text, createLocation(text, inputs)); },
        [&] { InstallerException{text}; },
        [&] { installer_locale::getLocale(); },
        [&] { SandboxWorkflowDetector().isSandboxPathExist(); },
        [&] { VersionComparator().compareVersionNumbers(std::u16string(40, u'0'), u"0"); },
        [&] { FileSystemService::setInstallRoot(wide_text); },
        [&] { DiagnosticChannel channel{text}; }};
    for (auto const& operation : operations) {
        std::optional<logger::Logger> logger(log);
        logger::detail::forget_last_destination();
        changed = map;
        auto const descriptors = open_descriptors();
        for (std::size_t successes = 0; fails(operation, successes); ++successes) {
            EXPECT_EQ(open_descriptors(), descriptors);
            EXPECT_EQ(logger::get_destination().narrowName(), log);
            EXPECT_EQ(logger::detail::get_last_destination().narrowName(), "");
            EXPECT_EQ(changed, map);
            logger::append_message(u"next");
            EXPECT_THAT(read_file(log), ::testing::EndsWith(") next\n"));
        }
    }
    FileSystemService::setInstallRoot(u"");
}

}  // namespace
}  // namespace install::cpputil::tests
