// A small installer, which installs all products or none, updates an installation, and removes it.
// It uses every service of the library and is meant to be copied. Functions precede their callers:
// start reading at `main`.

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/log/expressions.hpp>
#include <boost/log/utility/setup/console.hpp>
#include <clocale>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include <install_cpputil/platform/diagnostic_channel.h>
#include <install_cpputil/platform/file_system_service.h>
#include <install_cpputil/platform/text_conversion.h>
#include <install_cpputil/utilities/argument_validation.h>
#include <install_cpputil/utilities/input_file_parser.h>
#include <install_cpputil/utilities/installer_exception.h>
#include <install_cpputil/utilities/installer_locale.h>
#include <install_cpputil/utilities/interrupt.h>
#include <install_cpputil/utilities/logger.h>
#include <install_cpputil/utilities/sandbox_workflow_detector.h>
#include <install_cpputil/utilities/version_comparator.h>

#include "installation.h"
#include "product_archive.h"
#include "receipt.h"

namespace {

namespace fs = std::filesystem;
using namespace install::cpputil;

constexpr auto const* help =
    "usage: example_installer [--verbose] INPUT_FILE LOG_FILE\n"
    "       example_installer [--verbose] --uninstall INSTALL_DIR LOG_FILE\n"
    "\n"
    "Installs the products that INPUT_FILE names, or removes the installation in INSTALL_DIR.\n"
    "Files that the user added or changed are kept in INSTALL_DIR.kept-N. What was done is\n"
    "appended to LOG_FILE. --verbose writes diagnostic records to standard error.\n"
    "\n"
    "INPUT_FILE, of at most 1 MiB, contains these lines:\n"
    "  install_dir = DIRECTORY   where to install\n"
    "  product_dir = DIRECTORY   contains NAME.tar.zst or NAME.tar.gz for each product, and next\n"
    "                            to it the output of sha256sum in NAME.tar.zst.sha256\n"
    "                            or NAME.tar.gz.sha256\n"
    "  version = NUMBERS         the version of the products, e.g. 1.10.0\n"
    "  overwrite = yes|no        whether to replace an installation (default: no)\n"
    "  greeting = TEXT           shown at the beginning (default: none)\n"
    "  product.NAME              a product to install; \"_\" stands for a space\n"
    "\n"
    "Exit status: 0 finished, 1 failed, 2 wrong command line, 130 stopped by a signal.\n";

/// Returns why the command line is rejected, or an empty string. Changes no file.
std::string find_mistake(bool uninstall, std::vector<std::string> const& files) {
    for (auto const& file : files) {
        if (file.empty() || file[0] == '-') {
            return "unknown option: " + file;
        }
    }
    if (files.size() != 2) {
        return "two arguments are expected; see --help";
    }
    std::error_code ignored;
    // Ctrl-C could not stop reading a pipe or a large file.
    if (!uninstall &&
        (!fs::is_regular_file(files[0], ignored) || fs::file_size(files[0], ignored) > 1 << 20)) {
        return "the input file is missing, not a regular file, or larger than 1 MiB: " + files[0];
    }
    if (fs::equivalent(files[0], files[1], ignored)) {
        return "both arguments name the same file: " + files[1];
    }
    auto const first = fs::is_regular_file(files[1], ignored) ? std::ifstream(files[1]).get() : EOF;
    return first == EOF || first == '('
               ? ""
               : "an existing file is not a log: " + files[1] + " (are the arguments swapped?)";
}

/// Raises the interrupt flag at the first Ctrl-C, SIGTERM or SIGHUP. Raising it is not safe in a
/// signal handler, so a thread waits for the signals. Call it before any other thread is created,
/// since threads inherit the signal mask.
void watch_signals() {
    sigset_t signals = {};
    ::sigemptyset(&signals);
    for (auto const signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        ::sigaction(signal, nullptr, &action);
        if (action.sa_handler != SIG_IGN) {  // nohup, for example, ignores SIGHUP.
            ::sigaddset(&signals, signal);
        }
    }
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals] {
        int signal = 0;
        ::sigwait(&signals, &signal);
        interrupt::set();
    }).detach();
}

/// Writes diagnostic records to standard error.
void show_diagnostics() {
    namespace log = boost::log;
    log::add_console_log(std::clog, log::keywords::format = log::expressions::stream
                                                            << "diagnostics: "
                                                            << log::expressions::smessage);
    for (auto const* const channel :
         {"product_archive", "install::cpputil::logger", "install::cpputil::interrupt"}) {
        DiagnosticChannel::setEnabledSeverities(channel, static_cast<unsigned>(Severity::changes));
    }
}

/// What the installation will do.
struct Plan {
    fs::path target;
    bool overwrite = false;
    std::string version;
    std::map<std::string, fs::path> archives;  ///< by the product's name
};

/// Returns the directory of an installation. Rejects a directory that contains any of \p others. In
/// the sandbox workflow, the directory "sandbox" next to the marker is prepended.
fs::path find_target(std::string const& install_dir, std::vector<fs::path> const& others) {
    // A path that ends in "/" would have an empty file name.
    auto target = fs::absolute(install_dir + "/.").lexically_normal().parent_path();
    auto const sandbox = SandboxWorkflowDetector().isSandboxWorkflow();
    if (sandbox) {
        auto const root = FileSystemService::parentPath(FileSystemService::installRoot());
        target = fs::path(TextConversion::toUtf8(root)) / "sandbox" / target.relative_path();
    }
    target = fs::weakly_canonical(target);
    require(target.has_filename(), "E103", "install_dir cannot be replaced: " + target.string());
    for (auto const& other : others) {
        auto const relative = fs::weakly_canonical(fs::absolute(other)).lexically_relative(target);
        require(*relative.begin() == "..", "E104",
                "install_dir must not contain " + other.string());
    }
    say("target: " + target.string() + " (workflow: " + (sandbox ? "sandbox" : "ordinary") +
        ", locale: " + TextConversion::toUtf8(installer_locale::getLocale()) + ")");
    // From now on, the installation root is the target instead of the installer's directory.
    FileSystemService::setInstallRoot(TextConversion::fromUtf8(target.string()));
    return target;
}

/// Returns the archive NAME.tar.zst or NAME.tar.gz of a product.
fs::path find_archive(fs::path const& product_dir, std::string const& product) {
    require(product.find('/') == std::string::npos && printable(product) == product, "E107",
            "the name of a product contains '/' or a control character: " + product);
    auto name = product;
    std::replace(name.begin(), name.end(), ' ', '_');
    auto archive = product_dir / (name + ".tar.zst");
    if (!fs::exists(archive)) {
        archive.replace_extension(".gz");
    }
    require(fs::exists(archive), "E109",
            "product " + product + ": no " + name + ".tar.zst or " + name + ".tar.gz in " +
                product_dir.string());
    validate_args({{"product." + name, archive.string()}}, {{"product." + name, "rfile"}});
    return archive;
}

/// Checks the inputs, appends them to the log, and returns the plan of the installation.
Plan make_plan(std::string const& input_file, std::string const& log_file) {
    std::map<std::string, std::string> texts = {{"install_dir", ""},
                                                {"product_dir", ""},
                                                {"version", ""},
                                                {"overwrite", "no"},
                                                {"greeting", ""}};
    std::vector<std::u16string> products;
    for (auto const& [utf16_key, value] :
         InputFileParser().parse(TextConversion::fromUtf8(input_file))) {
        auto const key = TextConversion::toUtf8(utf16_key);
        if (auto const* const text = std::get_if<std::u16string>(&value)) {
            require(texts.count(key) != 0, "E108", "unknown key: " + key);
            texts[key] = TextConversion::toUtf8(*text);
        } else {
            require(key == "product", "E108", "unknown key: " + key);
            products = std::get<std::vector<std::u16string>>(value);
        }
    }
    logger::append_file(input_file);
    for (auto const* const key : {"install_dir", "product_dir", "version"}) {
        require(!texts[key].empty(), "E100", std::string("no ") + key);
    }
    require(!products.empty(), "E100", "no product");
    validate_args(texts, {{"overwrite", "boolval"}});
    // VersionComparator reads numbers of 32 bits.
    static std::regex const version("[0-9]{1,9}(\\.[0-9]{1,9})*");
    require(std::regex_match(texts["version"], version), "E101",
            "version is not a version number: " + texts["version"]);
    if (!texts["greeting"].empty()) {
        say(texts["greeting"]);
    }
    auto const product_dir = fs::absolute(texts["product_dir"]);
    auto const overwrite = InputFileParser().stringToLowerCase(texts["overwrite"]);
    Plan plan = {find_target(texts["install_dir"], {product_dir, input_file, log_file}),
                 overwrite == "yes" || overwrite == "true",
                 texts["version"],
                 {}};
    for (auto const& product : products) {
        auto const name = TextConversion::toUtf8(product);
        plan.archives[name] = find_archive(product_dir, name);
    }
    return plan;
}

/// Returns a function that shows which percentage of \p total has been unpacked, if the standard
/// output is a terminal. The next line overwrites it.
ProductArchive::Progress make_progress(std::uintmax_t total) {
    return [total, done = std::uintmax_t(0), shown = std::uintmax_t(101),
            is_terminal = ::isatty(STDOUT_FILENO) == 1](std::uintmax_t bytes) mutable {
        done += bytes;
        auto const percent = std::min<std::uintmax_t>(100, 100 * done / total);
        if (is_terminal && percent != shown) {
            shown = percent;
            std::cout << percent << " %\r" << std::flush;
        }
    };
}

/// Unpacks the products into a new directory, which then replaces the installation.
void install(Plan const& plan) {
    Installation installation(plan.target);
    auto const previous = installation.prepare();
    require(plan.overwrite || previous.products.empty(), "E106",
            "set overwrite = yes to replace the products in " + plan.target.string());
    for (auto const& [name, version] : previous.products) {
        auto const order = VersionComparator().compareVersionNumbers(
            TextConversion::fromUtf8(version), TextConversion::fromUtf8(plan.version));
        require(order <= 0, "E102", "a newer version is installed: " + name + ' ' + version);
    }
    std::map<std::string, ProductArchive> archives;
    std::uintmax_t size = 0;
    for (auto const& [name, path] : plan.archives) {
        size += archives.try_emplace(name, path).first->second.size();
    }
    require(
        size <= fs::space(".").available, "E110",
        "not enough space for " + std::to_string(size) + " bytes next to " + plan.target.string());
    installation.enterNew();
    ReceiptWriter receipt;
    auto const progress = make_progress(size);
    for (auto& [name, archive] : archives) {
        std::cout << "unpacking " << name << '\n' << std::flush;
        archive.unpack([&](auto const& kind, auto const& digest,
                           auto const& path) { receipt.add(kind, digest, path); },
                       progress);
        receipt.add("product", plan.version, name);
        logger::append_message("unpacked " + name + ' ' + plan.version);
    }
    std::cout << "writing to the disk\n" << std::flush;
    receipt.finish();
    installation.replace(previous);
}

void uninstall(fs::path const& target) {
    require(fs::is_directory(target), "E103", "no directory: " + target.string());
    Installation installation(target);
    auto const receipt = installation.prepare();
    require(!receipt.products.empty(), "E106", "no receipt in " + target.string());
    installation.remove(receipt);
}

/// Prints and logs why and where the installation failed or was stopped.
int fail(std::string const& why, std::string const& location, int status) {
    auto const text = printable(why + " (" + location + ")");
    std::cerr << "example_installer: " << text << '\n';
    logger::append_message(text);
    return status;
}

int run(bool is_uninstallation, std::string const& subject, std::string const& log_name) {
    std::optional<logger::Logger> log;   // Outlives the try block, so that handlers can log.
    std::string file = log_name + ": ";  // The prefix of messages: what is opened or read.
    try {
        auto const log_file = fs::absolute(log_name).string();
        log.emplace(log_file);
        file.clear();
        if (::geteuid() == 0) {
            ::umask(022);  // Everyone can use the installation. The existing log keeps its mode.
        }
        if (is_uninstallation) {
            uninstall(find_target(subject, {log_file}));
            say("uninstallation finished");
        } else {
            file = subject + ": ";
            auto const plan = make_plan(subject, log_file);
            file.clear();
            install(plan);
            say("installation finished");
        }
        return 0;
    } catch (interrupt::Exception const& stopped) {
        return fail(stopped.what(), createLocation("example_installer", "run"), 130);
    } catch (InstallerException const& error) {
        auto const why = error.getErrorCode() + ": " + error.getPrimaryErrorMessage() + " ";
        return fail(why + file + error.what(), error.getLocation(), 1);
    } catch (std::exception const& error) {
        return fail(file + error.what(), createLocation("example_installer", "run"), 1);
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_CTYPE, "C.UTF-8");  // File names are UTF-8 in every locale.
    ::signal(SIGXFSZ, SIG_IGN);           // A file that is too large causes a write error.
    ::signal(SIGPIPE, SIG_IGN);  // A closed standard output does not stop the installation.
    try {
        std::vector<std::string> arguments(argv + 1, argv + argc);
        auto const take = [&](std::string const& option) {
            auto const found = std::find(arguments.begin(), arguments.end(), option);
            return found != arguments.end() && (arguments.erase(found), true);
        };
        if (take("--help")) {
            std::cout << help;
            return 0;
        }
        auto const verbose = take("--verbose");
        auto const uninstall = take("--uninstall");
        if (auto const mistake = find_mistake(uninstall, arguments); !mistake.empty()) {
            std::cerr << "example_installer: " << printable(mistake) << '\n';
            return 2;
        }
        watch_signals();
        if (verbose) {
            show_diagnostics();
        }
        return run(uninstall, arguments[0], arguments[1]);
    } catch (std::exception const& error) {
        std::cerr << "example_installer: " << error.what() << '\n';
        return 1;
    }
}
