// A small installer that uses every service of the library the way a careful installer would. It
// installs nothing: where a real one would unpack a product, it writes a line.
//
// Its exit status is 0 when the installation is finished, 1 when it failed, 2 when the command line is
// wrong, and 130 when Ctrl-C stopped it.

#include <pthread.h>
#include <signal.h>

#include <exception>
#include <filesystem>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "platform/text_conversion.h"
#include "utilities/argument_validation.h"
#include "utilities/input_file_parser.h"
#include "utilities/installer_exception.h"
#include "utilities/installer_locale.h"
#include "utilities/interrupt.h"
#include "utilities/logger.h"
#include "utilities/sandbox_workflow_detector.h"
#include "utilities/version_comparator.h"

namespace {

using namespace install::cpputil;

constexpr char16_t const* own_version = u"1.10.0";

/// Raises the interrupt flag when Ctrl-C comes. Raising it is not safe inside a signal handler, so a
/// thread waits for the signal. To be made before any other thread, since they inherit the mask.
class CtrlC {
public:
    CtrlC() {
        ::sigemptyset(&signals_);
        ::sigaddset(&signals_, SIGINT);
        ::sigaddset(&signals_, stop_waiting);
        ::pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        waiter_ = std::thread([this] { wait(); });
    }
    CtrlC(CtrlC const&) = delete;
    CtrlC& operator=(CtrlC const&) = delete;
    ~CtrlC() {
        ::pthread_kill(waiter_.native_handle(), stop_waiting);
        waiter_.join();
    }

private:
    static constexpr int stop_waiting = SIGUSR1;

    void wait() const {
        for (int signal = 0; signal != stop_waiting;) {
            if (::sigwait(&signals_, &signal) == 0 && signal == SIGINT) {
                interrupt::set();
            }
        }
    }

    sigset_t signals_ = {};
    std::thread waiter_;
};

/// Tells the user and the log.
void say(std::string const& text) {
    std::cout << text << '\n';
    logger::append_message(text);
}

std::string readable(PropertyValue const& value) {
    if (auto const* const text = std::get_if<std::u16string>(&value)) {
        return TextConversion::toUtf8(*text);
    }
    std::string list;
    for (auto const& name : std::get<std::vector<std::u16string>>(value)) {
        list += "\n    - " + TextConversion::toUtf8(name);
    }
    return list;
}

void print_inputs(PropertyMap const& inputs) {
    std::cout << inputs.size() << " inputs:\n";
    for (auto const& [key, value] : inputs) {
        std::cout << "  " << TextConversion::toUtf8(key) << " = " << readable(value) << '\n';
    }
}

/// Returns the text that the user gave for \p key, or an empty one.
std::u16string text_of(PropertyMap const& inputs, std::u16string const& key) {
    auto const found = inputs.find(key);
    auto const* const text =
        found == inputs.end() ? nullptr : std::get_if<std::u16string>(&found->second);
    return text == nullptr ? std::u16string() : *text;
}

/// Returns whether \p version, which the user says is installed, is older than this one.
bool is_older(std::u16string const& version) {
    try {
        return VersionComparator().compareVersionNumbers(version, own_version) < 0;
    } catch (std::logic_error const&) {
        // A component that is no number, or too large: in words that help the user.
        throw InstallerException(
            "E101", "The installation cannot start.",
            "installed_version is no version number: " + TextConversion::toUtf8(version),
            createLocation("example_installer", "is_older"));
    }
}

/// Refuses inputs that the installation could not work with, before it touches anything.
void validate_inputs(PropertyMap const& inputs) {
    std::map<std::string, std::string> args;
    for (auto const& [key, value] : inputs) {
        args[TextConversion::toUtf8(key)] = readable(value);
    }
    validate_args(args, {{"mode", "strval:full,minimal"},
                         {"overwrite", "boolval"},
                         {"port", "intval"},
                         {"licence_file", "rfile"}});
    if (text_of(inputs, u"install_dir").empty()) {
        throw InstallerException("E100", "The installation cannot start.",
                                 "the input file names no install_dir",
                                 createLocation("example_installer", "validate_inputs"));
    }
    // Throws for what is no version number.
    static_cast<void>(is_older(text_of(inputs, u"installed_version")));
}

void describe_system(PropertyMap const& inputs) {
    say("locale: " + TextConversion::toUtf8(installer_locale::getLocale()));
    say(std::string("workflow: ") +
        (SandboxWorkflowDetector().isSandboxWorkflow() ? "sandbox" : "ordinary"));
    auto const installed = text_of(inputs, u"installed_version");
    say("installed version: " + (installed.empty()
                                     ? "none"
                                     : TextConversion::toUtf8(installed) +
                                           (is_older(installed) ? ", older" : ", not older")));
}

void install_products(PropertyMap const& inputs) {
    auto const products = inputs.find(u"product");
    if (products == inputs.end()) {
        return;
    }
    auto const directory = TextConversion::toUtf8(text_of(inputs, u"install_dir"));
    for (auto const& product : std::get<std::vector<std::u16string>>(products->second)) {
        auto const step = "installing " + TextConversion::toUtf8(product) + " to " + directory;
        interrupt::test::pause_and_throw_if_set("EXAMPLE_INSTALLER_PAUSE");
        interrupt::throw_if_set("before " + step);
        say(step);
    }
}

void run_installation(std::string const& input_file) {
    auto const inputs = InputFileParser().parse(TextConversion::fromUtf8(input_file));
    print_inputs(inputs);
    if (std::filesystem::is_regular_file(input_file)) {
        // What came through a pipe has been read and cannot be copied.
        logger::append_file(input_file);
    }
    validate_inputs(inputs);
    describe_system(inputs);
    install_products(inputs);
    say("installation finished");
}

/// Tells the user and the log why the installation ended early. Only the user is shown the name of the
/// input file as it was given, since it need not be UTF-8.
int fail(std::string const& input_file, std::string const& text, int status) {
    std::cerr << "example_installer: " << input_file << ": " << text << '\n';
    logger::append_message(text);
    return status;
}

int install_with_log(std::string const& input_file) {
    try {
        run_installation(input_file);
        return 0;
    } catch (interrupt::Exception const& stopped) {
        return fail(input_file, stopped.what(), 130);
    } catch (InstallerException const& error) {
        return fail(input_file,
                    error.getErrorCode() + ": " + error.getPrimaryErrorMessage() + " " +
                        error.what() + " (" + error.getLocation() + ")",
                    1);
    } catch (std::exception const& error) {
        return fail(input_file, error.what(), 1);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: example_installer INPUT_FILE LOG_FILE\n";
        return 2;
    }
    try {
        CtrlC const ctrl_c;
        logger::Logger const log{std::string(argv[2])};
        return install_with_log(argv[1]);
    } catch (std::exception const& error) {
        std::cerr << "example_installer: " << error.what() << '\n';
        return 1;
    }
}
