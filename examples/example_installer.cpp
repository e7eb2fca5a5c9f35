// A small installer, which installs all products or none, updates an installation, and removes it.
// It uses every service of the library and is meant to be copied. Functions appear in execution
// order.

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <boost/log/expressions.hpp>
#include <boost/log/utility/setup/console.hpp>
#include <cerrno>
#include <clocale>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
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
    "INPUT_FILE contains these lines:\n"
    "  install_dir = DIRECTORY   where to install\n"
    "  product_dir = DIRECTORY   contains NAME.tar.zst or NAME.tar.gz of each product, and the\n"
    "                            output of sha256sum for it in NAME.tar.zst.sha256\n"
    "  version = NUMBERS         the version of the products, e.g. 1.10.0\n"
    "  overwrite = yes|no        whether to replace an installation (default: no)\n"
    "  greeting = TEXT           shown at the beginning (default: none)\n"
    "  product.NAME              a product to install; \"_\" stands for a space\n"
    "\n"
    "Exit status: 0 finished, 1 failed, 2 wrong command line, 130 stopped by a signal.\n";

/// Raises the interrupt flag at the first Ctrl-C, SIGTERM or SIGHUP. Raising it is not safe in a
/// signal handler, so a thread waits for the signals. Create it before any other thread, since
/// threads inherit the signal mask.
class StopSignals {
public:
    StopSignals() {
        ::sigemptyset(&signals_);
        ::sigaddset(&signals_, SIGUSR1);
        for (auto const signal : {SIGINT, SIGTERM, SIGHUP}) {
            struct sigaction action = {};
            ::sigaction(signal, nullptr, &action);
            if (action.sa_handler != SIG_IGN) {  // nohup, for example, ignores SIGHUP.
                ::sigaddset(&signals_, signal);
            }
        }
        ::pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        waiter_ = std::thread([this] {
            int signal = 0;
            ::sigwait(&signals_, &signal);
            if (signal != SIGUSR1) {
                interrupt::set();
            }
        });
    }
    ~StopSignals() {
        ::pthread_kill(waiter_.native_handle(), SIGUSR1);  // Ends the wait if it still lasts.
        waiter_.join();
    }

private:
    sigset_t signals_ = {};
    std::thread waiter_;
};

struct Arguments {
    bool verbose = false;
    bool uninstall = false;
    std::vector<std::string> files;  ///< the input file or the directory, and the log
};

/// Returns why the command line is refused, or an empty string. Nothing is written before this
/// check.
std::string find_mistake(Arguments const& arguments) {
    auto const& files = arguments.files;
    auto const is_option = [](std::string const& file) { return file.empty() || file[0] == '-'; };
    if (auto const found = std::find_if(files.begin(), files.end(), is_option);
        found != files.end()) {
        return "unknown option: " + *found;
    }
    if (files.size() != 2) {
        return "two arguments are needed; --help describes them";
    }
    std::error_code ignored;
    // Reading a pipe could block; nor can the input be both parsed and copied to the log.
    if (!arguments.uninstall && !fs::is_regular_file(files[0], ignored)) {
        return "the input file does not exist or is not a regular file: " + files[0];
    }
    if (fs::weakly_canonical(files[0], ignored) == fs::weakly_canonical(files[1], ignored) ||
        fs::equivalent(files[0], files[1], ignored)) {
        return "the log cannot be the same file: " + files[1];
    }
    auto const first = fs::is_regular_file(files[1], ignored) ? std::ifstream(files[1]).get() : EOF;
    return first == EOF || first == '('
               ? ""
               : "an existing file is not a log: " + files[1] + " (are the arguments swapped?)";
}

DiagnosticChannel& diagnostics() {
    static DiagnosticChannel channel("example_installer");
    return channel;
}

/// Writes diagnostic records to standard error.
void show_diagnostics() {
    namespace log = boost::log;
    log::add_console_log(std::clog, log::keywords::format = log::expressions::stream
                                                            << "diagnostics: "
                                                            << log::expressions::smessage);
    static_cast<void>(diagnostics());
    for (auto const* const channel :
         {"example_installer", "install::cpputil::logger", "install::cpputil::interrupt"}) {
        DiagnosticChannel::setEnabledSeverities(channel, static_cast<unsigned>(Severity::changes));
    }
}

/// Prints \p text and appends it to the log.
void say(std::string const& text) {
    auto const shown = printable(text);
    std::cout << shown << '\n' << std::flush;
    logger::append_message(shown);
}

void require(bool valid, char const* code, std::string const& why, char const* function) {
    if (!valid) {
        throw InstallerException(code, "Nothing was changed.", why,
                                 createLocation("example_installer", function));
    }
}

struct Product {
    std::string name;
    fs::path archive;
};

/// What the installation will do.
struct Plan {
    fs::path target;
    bool overwrite = false;
    std::string version;
    std::vector<Product> products;
};

/// Returns the directory of an installation. In the sandbox workflow, the directory "sandbox" next
/// to the marker is prepended. It must not contain \p others.
fs::path find_target(std::string const& install_dir, std::vector<fs::path> const& others) {
    // A path that ends in "/" would have an empty file name.
    auto target = fs::absolute(install_dir + "/.").lexically_normal().parent_path();
    auto const sandbox = SandboxWorkflowDetector().isSandboxWorkflow();
    if (sandbox) {
        auto const root = FileSystemService::parentPath(FileSystemService::installRoot());
        target = fs::path(TextConversion::toUtf8(root)) / "sandbox" / target.relative_path();
    }
    target = fs::weakly_canonical(target);
    require(target.has_filename(), "E103", "install_dir cannot be replaced: " + target.string(),
            __func__);
    for (auto const& other : others) {
        auto const relative = fs::weakly_canonical(fs::absolute(other)).lexically_relative(target);
        require(*relative.begin() == "..", "E104", "install_dir must not contain " + other.string(),
                __func__);
    }
    auto const locale = TextConversion::toUtf8(installer_locale::getLocale());
    say("target: " + target.string() + " (workflow: " + (sandbox ? "sandbox" : "ordinary") +
        ", locale: " + locale + ")");
    // From now on, the root is not where the installer is but where the products are.
    FileSystemService::setInstallRoot(TextConversion::fromUtf8(target.string()));
    return target;
}

/// Returns the archive NAME.tar.zst or NAME.tar.gz of a product.
fs::path find_archive(fs::path const& product_dir, std::string const& product) {
    require(product.find('/') == std::string::npos && printable(product) == product, "E107",
            "the name of a product contains '/' or a control character: " + product, __func__);
    auto name = product;
    std::replace(name.begin(), name.end(), ' ', '_');
    auto archive = product_dir / (name + ".tar.zst");
    if (!fs::exists(archive)) {
        archive.replace_extension(".gz");
    }
    require(fs::exists(archive), "E109",
            "product " + product + ": no " + name + ".tar.zst or " + name + ".tar.gz in " +
                product_dir.string(),
            __func__);
    validate_args({{"product." + name, archive.string()}}, {{"product." + name, "rfile"}});
    return archive;
}

void check_version(std::string const& version) {
    auto valid = version.find_first_not_of("0123456789.") == std::string::npos;
    try {
        auto const utf16 = TextConversion::fromUtf8(version);
        VersionComparator().compareVersionNumbers(utf16, utf16);
    } catch (std::logic_error const&) {  // A component is not a number or is too large.
        valid = false;
    }
    require(valid, "E101", "version is not a version number: " + version, __func__);
}

/// Checks the inputs and returns the plan of the installation. Changes no file.
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
        auto const* const text = std::get_if<std::u16string>(&value);
        require(text == nullptr ? key == "product" : texts.count(key) != 0, "E108",
                "unknown key: " + key, __func__);
        if (text == nullptr) {
            products = std::get<std::vector<std::u16string>>(value);
        } else {
            texts[key] = TextConversion::toUtf8(*text);
        }
    }
    logger::append_file(input_file);
    for (auto const* const key : {"install_dir", "product_dir", "version"}) {
        require(!texts[key].empty(), "E100", std::string("no ") + key, __func__);
    }
    require(!products.empty(), "E100", "no product", __func__);
    validate_args(texts, {{"overwrite", "boolval"}});
    check_version(texts["version"]);
    if (!texts["greeting"].empty()) {
        say(texts["greeting"]);
    }
    auto const product_dir = fs::absolute(texts["product_dir"]);
    Plan plan;
    plan.target = find_target(texts["install_dir"], {product_dir, input_file, log_file});
    auto const overwrite = InputFileParser().stringToLowerCase(texts["overwrite"]);
    plan.overwrite = overwrite == "yes" || overwrite == "true";
    plan.version = texts["version"];
    for (auto const& product : products) {
        auto const name = TextConversion::toUtf8(product);
        plan.products.push_back({name, find_archive(product_dir, name)});
    }
    return plan;
}

/// Shows what is being done: each step on a line and, on a terminal, a bar below it.
class Progress {
public:
    explicit Progress(std::uintmax_t total) : total_(total) {}
    ~Progress() { clear(); }

    void step(std::string const& text) {
        clear();
        std::cout << printable(text) << '\n' << std::flush;
    }

    void add(std::uintmax_t bytes) {
        done_ += bytes;
        auto const percent = static_cast<int>(std::min<std::uintmax_t>(100, 100 * done_ / total_));
        if (!isTerminal_ || percent == shown_) {
            return;
        }
        shown_ = percent;
        winsize size = {};
        auto const known = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
        // The bar is followed by up to 8 columns, e.g. "] 100 %", and the cursor.
        auto const width = std::clamp((known ? size.ws_col : 80) - 9, 0, 25);
        auto const filled = static_cast<std::size_t>(percent * width / 100);
        std::cout << "\r[" << std::string(filled, '#')
                  << std::string(static_cast<std::size_t>(width) - filled, '.') << "] " << percent
                  << " %" << std::flush;
    }

private:
    void clear() {
        if (shown_ >= 0) {
            std::cout << "\r\033[K" << std::flush;
            shown_ = -1;
        }
    }

    bool isTerminal_ = ::isatty(STDOUT_FILENO) == 1;
    int shown_ = -1;  ///< the percentage on the terminal; negative if there is no bar
    std::uintmax_t done_ = 0;
    std::uintmax_t total_;
};

/// Excludes other installers of one target until the process ends, even if it is killed.
class Lock {
public:
    /// \param path  the name of the file in messages
    Lock(int parent, std::string name, std::string const& path)
        : parent_(parent), name_(std::move(name)) {
        struct stat own = {};
        struct stat directory = {};
        struct stat named = {};
        check_call(::fstat(parent_, &directory), path);
        do {  // A finished installer may have removed the file after it was opened.
            auto const flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
            file_ = Descriptor(
                check_call(::openat(parent_, name_.c_str(), flags, 0600), "cannot open " + path));
            check_call(::fstat(file_.get(), &own), path);
            auto const owner = own.st_uid;
            require(S_ISREG(own.st_mode) && (owner == ::geteuid() || owner == directory.st_uid),
                    "E105", "another user has created " + path, __func__);
            auto const result = ::flock(file_.get(), LOCK_EX | LOCK_NB);
            require(result == 0 || errno != EWOULDBLOCK, "E105",
                    "another installer has locked " + path, __func__);
            check_call(result, "cannot lock " + path);
        } while (::fstatat(parent_, name_.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0 ||
                 named.st_ino != own.st_ino);
    }
    Lock(Lock const&) = delete;
    Lock& operator=(Lock const&) = delete;
    ~Lock() { ::unlinkat(parent_, name_.c_str(), 0); }

private:
    int parent_;
    std::string name_;
    Descriptor file_;
};

/// Returns \p target or, if directories above it are missing, the first of them.
fs::path find_place(fs::path target) {
    while (!fs::exists(target.parent_path())) {
        target = target.parent_path();
    }
    return target;
}

/// A locked target, and a work directory beside it that no other user can enter. Uses descriptors,
/// since another user may be able to rename what is in the parent directory.
class Site {
public:
    explicit Site(fs::path const& target)
        : place_(find_place(target)),
          name_(place_.filename()),
          parent_(open_directory(AT_FDCWD, place_.parent_path())),
          lock_(parent_.get(), '.' + name_ + ".lock", sibling('.' + name_ + ".lock")),
          exists_(::fstatat(parent_.get(), name_.c_str(), &previous_, AT_SYMLINK_NOFOLLOW) == 0) {
        require(!exists_ || S_ISDIR(previous_.st_mode), "E103",
                "a dangling link or not a directory: " + place_.string(), __func__);
        require(!exists_ || place_ == target, "E105",
                "another process has created " + place_.string(), __func__);
        for (auto const& entry : fs::directory_iterator(place_.parent_path())) {
            if (entry.path().filename().string().rfind(workPrefix(), 0) == 0) {
                say("left by an installer that was killed, with files of the user if it had "
                    "replaced "
                    "them: " +
                    entry.path().string());
            }
        }
    }
    Site(Site const&) = delete;
    Site& operator=(Site const&) = delete;
    ~Site() {
        if (work_.get() < 0) {
            return;
        }
        if (isDisposable_) {
            remove_entries(work_, nullptr, [](auto const&...) {});
        }
        if (::unlinkat(parent_.get(), workName_.c_str(), AT_REMOVEDIR) != 0) {
            say("cannot remove " + sibling(workName_));
        }
    }

    /// Returns the receipt of the installation; an empty one if the target is empty or missing.
    Receipt receipt() const {
        if (!exists_) {
            return {};
        }
        auto const found =
            read_receipt(open_directory(parent_.get(), name_).get(), place_.string());
        require(found || fs::is_empty(place_), "E106",
                "no receipt of an earlier installation, but files in " + place_.string(), __func__);
        return found.value_or(Receipt());
    }

    /// Creates the work directory, and checks that the target can be moved or exchanged.
    void prepare() {
        check_call(::fchdir(parent_.get()), place_.string());
        auto name = workPrefix() + "XXXXXX";
        check_call(::mkdtemp(name.data()) == nullptr ? -1 : 0, "cannot create " + sibling(name));
        workName_ = name;
        work_ = open_directory(parent_.get(), workName_);
        struct stat status = {};
        check_call(::fstat(work_.get(), &status), workName_);
        require(status.st_uid == ::geteuid(), "E105",
                "another user has replaced " + sibling(workName_), __func__);
        check_call(::fchdir(work_.get()), workName_);
        if (!exists_) {
            return;
        }
        fs::create_directories("a/entry");
        fs::create_directory("b");
        check_call(::renameat2(AT_FDCWD, "a", AT_FDCWD, "b", RENAME_EXCHANGE),
                   "the file system cannot exchange directories: " + place_.string());
        // Always fails, since no directory replaces one that is not empty, but first for other
        // reasons.
        auto const result = ::renameat(parent_.get(), name_.c_str(), AT_FDCWD, "b");
        require(errno != EBUSY, "E103", "a mount point: " + place_.string(), __func__);
        check_call(errno == ENOTEMPTY || errno == EEXIST ? 0 : result,
                   "cannot move " + place_.string());
        fs::remove_all("b");
        fs::remove("a");
    }

    std::uintmax_t freeSpace() const {
        struct statvfs status = {};
        check_call(::fstatvfs(parent_.get(), &status), place_.string());
        return status.f_frsize * (::geteuid() == 0 ? status.f_bfree : status.f_bavail);
    }

    /// Creates the new directory \p target, with the owner of the previous one, and enters it.
    void enterNew(fs::path const& target) const {
        auto const relative = target.lexically_relative(place_.parent_path());
        fs::create_directories(relative);
        if (exists_) {
            check_call(::chown(name_.c_str(), previous_.st_uid, previous_.st_gid),
                       "cannot set the owner of a new " + place_.string());
        }
        fs::current_path(relative);
    }

    /// Moves the new directory into place. The exchange is atomic, so a complete installation is in
    /// place at any time. The files are first written to the disk, so that this is also true after
    /// a power failure.
    void replace() {
        if (exists_) {
            check_call(::fchmodat(work_.get(), name_.c_str(), previous_.st_mode & 07777U, 0),
                       "cannot set the permissions of a new " + place_.string());
        }
        check_call(::syncfs(work_.get()), "cannot write " + place_.string());
        interrupt::throw_if_set("before the exchange");
        auto const result = ::renameat2(work_.get(), name_.c_str(), parent_.get(), name_.c_str(),
                                        exists_ ? RENAME_EXCHANGE : 0);
        isDisposable_ = result != 0;
        check_call(result, "cannot replace " + place_.string());
        say((exists_ ? "replaced " : "created ") + place_.string());
    }

    /// Moves the installation into the work directory.
    void takeAway() {
        interrupt::throw_if_set("before the removal");
        auto const result = ::renameat(parent_.get(), name_.c_str(), work_.get(), name_.c_str());
        isDisposable_ = result != 0;
        check_call(result, "cannot remove " + place_.string());
        say("removed " + place_.string());
    }

    /// Removes the previous installation from the work directory. Keeps the user's files beside the
    /// target.
    void removePrevious(Receipt const& receipt) const {
        if (!exists_) {
            return;
        }
        std::vector<std::pair<std::string, std::string>> kept;
        remove_entries(open_directory(work_.get(), name_), &receipt,
                       [&](auto const&... entry) { kept.emplace_back(entry...); });
        if (::unlinkat(work_.get(), name_.c_str(), AT_REMOVEDIR) == 0) {
            return;
        }
        auto number = 1;
        auto const path = [&] { return name_ + ".kept-" + std::to_string(number); };
        while (::renameat(work_.get(), name_.c_str(), parent_.get(), path().c_str()) != 0) {
            check_call(errno == ENOTEMPTY || errno == EEXIST || errno == ENOTDIR ? 0 : -1,
                       "the user's files are in " + sibling(workName_));
            ++number;
        }
        for (auto const& [entry, why] : kept) {
            say("kept (" + why + "): " + sibling(path()) + '/' + entry);
        }
    }

private:
    std::string sibling(std::string const& name) const { return place_.parent_path() / name; }
    std::string workPrefix() const { return '.' + name_ + ".work-"; }

    fs::path place_;  ///< what is moved into place: the target or its first missing parent
    std::string name_;
    Descriptor parent_;
    Lock lock_;
    struct stat previous_ = {};
    bool exists_;
    std::string workName_;
    Descriptor work_;
    bool isDisposable_ = true;  ///< The work directory contains nothing of the user.
};

/// Unpacks the products into a work directory, which then replaces the installation.
void install(Plan const& plan) {
    Site site(plan.target);
    auto const installed = site.receipt();
    require(plan.overwrite || installed.products.empty(), "E106",
            "overwrite is not yes, but products are installed in " + plan.target.string(),
            __func__);
    for (auto const& [name, version] : installed.products) {
        auto const order = VersionComparator().compareVersionNumbers(
            TextConversion::fromUtf8(version), TextConversion::fromUtf8(plan.version));
        require(order <= 0, "E102", "a newer version is installed: " + name + ' ' + version,
                __func__);
    }
    site.prepare();
    std::vector<ProductArchive> archives;
    std::uintmax_t size = 0;
    std::uintmax_t needed = 0;
    for (auto const& product : plan.products) {
        archives.emplace_back(product.archive);
        size += archives.back().size();
        needed += archives.back().neededSpace();
    }
    require(
        needed <= site.freeSpace(), "E110",
        "too little space for " + std::to_string(needed) + " bytes beside " + plan.target.string(),
        __func__);
    site.enterNew(plan.target);
    ReceiptWriter receipt;
    Progress progress(size);
    for (std::size_t i = 0; i < archives.size(); ++i) {
        auto const& name = plan.products[i].name;
        progress.step("unpacking " + name);
        receipt.add("product " + plan.version, name);
        auto entries = 0;
        archives[i].unpack([&](std::uintmax_t bytes) { progress.add(bytes); },
                           [&](std::string const& entry, std::string const& description) {
                               receipt.add(description, entry);
                               diagnostics().write(Severity::changes, {"unpacked ", entry});
                               ++entries;
                           });
        logger::append_message("unpacked " + name + ' ' + plan.version +
                               ", files: " + std::to_string(entries));
    }
    receipt.finish();
    progress.step("writing to the disk");
    site.replace();
    site.removePrevious(installed);
}

void uninstall(fs::path const& target) {
    require(fs::is_directory(target), "E103", "no directory: " + target.string(), __func__);
    Site site(target);
    auto const receipt = site.receipt();
    require(!receipt.products.empty(), "E106", "no receipt in " + target.string(), __func__);
    site.prepare();
    site.takeAway();
    site.removePrevious(receipt);
}

/// Prints and logs why and where the installation ended early.
int fail(std::string const& why, std::string const& location, int status) {
    auto const text = printable(why + " (" + location + ")");
    std::cerr << "example_installer: " << text << '\n';
    logger::append_message(text);
    return status;
}

int run(Arguments const& arguments) {
    auto const& subject = arguments.files[0];
    std::optional<logger::Logger> log;  // Outlives the try block, so that handlers can log.
    std::string file;                   // The prefix of messages while the input file is checked.
    try {
        auto const log_file = fs::absolute(arguments.files[1]).string();
        log.emplace(log_file);
        if (::geteuid() == 0) {
            ::umask(
                022);  // Everyone can use the installation. The log keeps the umask of the user.
        }
        if (arguments.uninstall) {
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

int start(Arguments arguments) {
    auto const take = [&](std::string const& option) {
        auto& files = arguments.files;
        auto const found = std::find(files.begin(), files.end(), option);
        return found != files.end() && (files.erase(found), true);
    };
    if (take("--help")) {
        std::cout << help;
        return 0;
    }
    arguments.verbose = take("--verbose");
    arguments.uninstall = take("--uninstall");
    if (auto const mistake = find_mistake(arguments); !mistake.empty()) {
        std::cerr << "example_installer: " << printable(mistake) << '\n';
        return 2;
    }
    StopSignals const stop_signals;
    if (arguments.verbose) {
        show_diagnostics();
    }
    return run(arguments);
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_CTYPE, "C.UTF-8");  // File names are UTF-8 in every locale.
    ::signal(SIGXFSZ, SIG_IGN);           // A file that is too large causes a write error.
    ::signal(SIGPIPE, SIG_IGN);  // A closed standard output does not stop the installation.
    try {
        return start({false, false, {argv + 1, argv + argc}});
    } catch (std::exception const& error) {
        std::cerr << "example_installer: " << error.what() << '\n';
        return 1;
    }
}
