// A small installer that unpacks either all products or none into a folder. It uses every service of
// the library and is meant to be copied. The functions are in the order of an installation.
//
// Its exit status is 0 if the installation is finished, 1 if it failed, 2 if the command line is
// wrong, and 130 if Ctrl-C or SIGTERM stopped it.

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <platform/file_system_service.h>
#include <platform/text_conversion.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utilities/argument_validation.h>
#include <utilities/input_file_parser.h>
#include <utilities/installer_exception.h>
#include <utilities/installer_locale.h>
#include <utilities/interrupt.h>
#include <utilities/logger.h>
#include <utilities/sandbox_workflow_detector.h>
#include <utilities/version_comparator.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <variant>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace install::cpputil;

constexpr char16_t const* own_version = u"1.10.0";

/// Raises the interrupt flag at the first Ctrl-C or SIGTERM. Raising it is not safe in a signal
/// handler, so a thread waits for the signals. Create it before any other thread, since threads
/// inherit the signal mask.
class StopSignals {
public:
    StopSignals() {
        ::sigemptyset(&signals_);
        ::sigaddset(&signals_, SIGINT);
        ::sigaddset(&signals_, SIGTERM);
        ::pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        waiter_ = std::thread([this] {
            int signal = 0;
            ::sigwait(&signals_, &signal);
            interrupt::set();
        });
    }
    ~StopSignals() {
        ::pthread_kill(waiter_.native_handle(), SIGINT);  // Ends the wait if no signal arrived.
        waiter_.join();
    }

private:
    sigset_t signals_ = {};
    std::thread waiter_;
};

void require(bool valid, char const* code, std::string const& why, char const* function) {
    if (!valid) {
        throw InstallerException(code, "The installation cannot start.", why,
                                 createLocation("example_installer", function));
    }
}

struct Product {
    std::string name;
    fs::path archive;
};

/// What the installation will do.
struct Plan {
    fs::path folder;
    bool overwrite;
    std::vector<Product> products;
    std::uintmax_t size;  ///< of all archives, in bytes
};

void check_version(std::string const& installed) {
    auto const version = TextConversion::fromUtf8(installed);
    auto order = 0;
    try {
        order = VersionComparator().compareVersionNumbers(version, own_version);
    } catch (std::logic_error const&) {  // A component is not a number or is too large.
        require(false, "E101", "installed_version is not a version number: " + installed, __func__);
    }
    require(order <= 0, "E102", "a newer version is installed: " + installed, __func__);
}

/// Returns the folder to install into. In the sandbox workflow it is below the folder "sandbox" in
/// the folder of the marker.
fs::path find_folder(std::string const& install_dir) {
    // A path that ends in "/" would have an empty file name.
    auto folder = fs::absolute(install_dir + "/.").lexically_normal().parent_path();
    if (SandboxWorkflowDetector().isSandboxWorkflow()) {
        auto const root = FileSystemService::parentPath(FileSystemService::installRoot());
        folder = fs::path(TextConversion::toUtf8(root)) / "sandbox" / folder.relative_path();
    }
    folder = fs::weakly_canonical(folder);
    require(folder.has_filename() && (!fs::exists(folder) || fs::is_directory(folder)), "E103",
            "install_dir cannot be replaced: " + folder.string(), __func__);
    return folder;
}

/// Returns the archive NAME.tar.zst or NAME.tar.gz of a product.
fs::path find_archive(fs::path const& product_dir, std::string name) {
    std::replace(name.begin(), name.end(), ' ', '_');
    auto archive = product_dir / (name + ".tar.zst");
    if (!fs::exists(archive)) {
        archive.replace_extension(".gz");
    }
    validate_args({{"product", archive.string()}}, {{"product", "rfile"}});
    return archive;
}

/// Checks the inputs and returns the plan of the installation. Changes no file.
Plan make_plan(PropertyMap const& inputs, fs::path const& input_file, fs::path const& log_file) {
    std::map<std::string, std::string> texts;
    std::vector<std::u16string> products;
    for (auto const& [utf16_key, value] : inputs) {
        auto const key = TextConversion::toUtf8(utf16_key);
        if (auto const* const text = std::get_if<std::u16string>(&value)) {
            texts[key] = TextConversion::toUtf8(*text);
        } else {
            require(key == "product", "E108", "not the key of a product line: " + key, __func__);
            products = std::get<std::vector<std::u16string>>(value);
        }
    }
    validate_args(texts, {{"mode", "strval:full,minimal"},
                          {"overwrite", "boolval"},
                          {"port", "intval"},
                          {"licence_file", "rfile"}});
    for (auto const* const key : {"install_dir", "product_dir"}) {
        require(!texts[key].empty(), "E100", std::string("the input file has no ") + key, __func__);
    }
    require(!products.empty(), "E100", "the input file has no product", __func__);
    check_version(texts["installed_version"]);
    auto const folder = find_folder(texts["install_dir"]);
    auto const product_dir = fs::absolute(texts["product_dir"]);
    for (auto const& file : {product_dir, input_file, log_file, fs::path(texts["licence_file"])}) {
        auto const relative = fs::weakly_canonical(file).lexically_relative(folder);
        require(file.empty() || *relative.begin() == "..", "E104",
                "install_dir would be replaced together with " + file.string(), __func__);
    }
    auto const overwrite = InputFileParser().stringToLowerCase(texts["overwrite"]);
    Plan plan = {folder, overwrite == "yes" || overwrite == "true", {}, 0};
    for (auto const& product : products) {
        auto const name = TextConversion::toUtf8(product);
        require(name.find('/') == std::string::npos, "E107",
                "the name of a product contains '/': " + name, __func__);
        plan.products.push_back({name, find_archive(product_dir, name)});
        plan.size += fs::file_size(plan.products.back().archive);
    }
    return plan;
}

/// Prints \p text and appends it to the log.
void say(std::string const& text) {
    std::cout << text << '\n' << std::flush;
    logger::append_message(text);
}

/// Unpacks the archive of one product into the current folder. Warnings of libarchive are errors,
/// because the installation must be complete.
class ProductArchive {
public:
    explicit ProductArchive(Product const& product) : product_(product) {
        archive_read_support_format_tar(source_.get());
        archive_read_support_filter_gzip(source_.get());
        archive_read_support_filter_zstd(source_.get());
        check(source_, archive_read_open_filename(source_.get(), product.archive.c_str(), 1 << 16),
              __func__);
        // These checks need relative names, so products are unpacked into the current folder.
        archive_write_disk_set_options(disk_.get(), ARCHIVE_EXTRACT_TIME |
                                                        ARCHIVE_EXTRACT_SECURE_SYMLINKS |
                                                        ARCHIVE_EXTRACT_SECURE_NODOTDOT |
                                                        ARCHIVE_EXTRACT_SECURE_NOABSOLUTEPATHS);
    }

    /// \param progress  called with the number of bytes of the archive that have been read; may throw
    void unpack(std::function<void(std::uintmax_t)> const& progress) {
        archive_entry* entry = nullptr;
        for (;;) {
            entry_ = "entry " + std::to_string(archive_file_count(source_.get()) + 1);
            auto const result = archive_read_next_header(source_.get(), &entry);
            if (result == ARCHIVE_EOF) {
                check(disk_, archive_write_close(disk_.get()), __func__);
                return;
            }
            check(source_, result, __func__);
            checkEntry(entry);
            unpackEntry(entry, progress);
            interrupt::test::pause_and_throw_if_set("EXAMPLE_INSTALLER_PAUSE");
        }
    }

private:
    using Handle = std::unique_ptr<archive, int (*)(archive*)>;

    /// Refuses entries that libarchive would unpack: names that could forge log entries, devices, and
    /// symbolic links that could lead out of the installation.
    void checkEntry(archive_entry* entry) {
        auto const* const name = archive_entry_pathname_utf8(entry);
        auto const is_control = [](unsigned char c) { return c < ' ' || c == '\x7f'; };
        if (name == nullptr || std::any_of(name, name + std::strlen(name), is_control)) {
            refuse("its name is not UTF-8 or has control characters", __func__);
        }
        entry_ = name;
        auto const type = archive_entry_filetype(entry);
        auto const* const hard_link = archive_entry_hardlink(entry);
        // In another folder, a hard link to a symbolic link could lead to another target.
        if (hard_link != nullptr ? !fs::is_regular_file(fs::symlink_status(hard_link))
                                 : type != AE_IFREG && type != AE_IFDIR && type != AE_IFLNK) {
            refuse("not a file, a folder, a symbolic link or a hard link to a file", __func__);
        }
        auto const* const target = archive_entry_symlink(entry);
        if (hard_link == nullptr && type == AE_IFLNK && leadsOut(target == nullptr ? "" : target)) {
            refuse("a symbolic link that leads out of the installation", __func__);
        }
    }

    /// Returns whether a symbolic link could lead out of the installation, directly or through other
    /// links. It cannot if \p target is not empty, is relative, and contains ".." only at its beginning,
    /// at most once for each folder above the link.
    bool leadsOut(fs::path const& target) const {
        auto const ups = [](fs::path const& p) { return std::count(p.begin(), p.end(), ".."); };
        // libarchive creates the link "name" for the entries "name/" and "name/.", too.
        auto const link = fs::path(entry_ + "/.").lexically_normal().parent_path();
        auto const resolved = (link.parent_path() / target).lexically_normal();
        return target.empty() || target.is_absolute() ||
               ups(target) != ups(target.lexically_normal()) || ups(resolved) != 0;
    }

    void unpackEntry(archive_entry* entry, std::function<void(std::uintmax_t)> const& progress) {
        auto const is_folder = archive_entry_filetype(entry) == AE_IFDIR;
        if (is_folder) {
            // Without these permissions, its owner could not replace the installation later.
            archive_entry_set_perm(entry, archive_entry_perm(entry) | 0700);
        }
        check(disk_, archive_write_header(disk_.get(), entry), __func__);
        void const* block = nullptr;
        std::size_t size = 0;
        la_int64_t offset = 0;
        for (;;) {
            progress(static_cast<std::uintmax_t>(archive_filter_bytes(source_.get(), -1)));
            auto const result = archive_read_data_block(source_.get(), &block, &size, &offset);
            if (result == ARCHIVE_EOF) {
                break;
            }
            check(source_, result, __func__);
            check(disk_, archive_write_data_block(disk_.get(), block, size, offset), __func__);
        }
        check(disk_, archive_write_finish_entry(disk_.get()), __func__);
        if (!is_folder) {
            logger::append_message("unpacked " + product_.name + ": " + entry_);
        }
    }

    void check(Handle const& handle, la_ssize_t result, char const* function) const {
        if (result >= ARCHIVE_OK) {
            return;
        }
        auto const* const text = archive_error_string(handle.get());
        auto why = std::string(text == nullptr ? "unknown error" : text);
        auto const code = archive_errno(handle.get());
        if (code > 0 && code != EILSEQ) {  // libarchive reports a malformed archive as EILSEQ.
            why += ": " + std::generic_category().message(code);
        }
        refuse(why, function);
    }

    [[noreturn]] void refuse(std::string const& why, char const* function) const {
        throw InstallerException("E300", "Nothing was installed.",
                                 product_.archive.string() + ": " + entry_ + ": " + why,
                                 createLocation("ProductArchive", function));
    }

    Product const& product_;
    std::string entry_ = "header";  ///< the name of the current entry, for messages
    Handle const source_{archive_read_new(), archive_read_free};
    Handle const disk_{archive_write_disk_new(), archive_write_free};
};

/// Unpacks all products into the current folder. Shows how much of all archives has been read: as a bar
/// on a terminal, otherwise as a line for each product.
void unpack(Plan const& plan) {
    auto const is_terminal = ::isatty(STDOUT_FILENO) == 1;
    std::uintmax_t done = 0;
    for (auto const& product : plan.products) {
        auto const show = [&](std::uintmax_t read) {
            interrupt::throw_if_set("unpacking " + product.name);
            if (is_terminal) {
                auto const percent = std::min<std::uintmax_t>(100 * (done + read) / plan.size, 100);
                auto const bar = std::string(percent / 4, '#') + std::string(25 - percent / 4, '.');
                std::cout << '[' << bar << "] " << percent << " %  " << product.name << "\033[K\r"
                          << std::flush;
            }
        };
        std::cout << (is_terminal ? "" : "unpacking " + product.name + '\n') << std::flush;
        ProductArchive(product).unpack(show);
        done += fs::file_size(product.archive);
        show(0);
    }
    std::cout << (is_terminal ? "\n" : "") << std::flush;
}

/// Throws the system's error if a system call has not succeeded.
void check_call(bool succeeded, char const* doing, fs::path const& path) {
    if (auto const error = errno; !succeeded) {
        throw std::system_error(error, std::generic_category(), doing + path.string());
    }
}

/// Locks \p folder against other installers until the process ends, even if it is killed. Returns a
/// descriptor of the folder, which must stay open.
int lock(fs::path const& folder) {
    auto const descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check_call(descriptor >= 0, "opening ", folder);
    auto const is_free = ::flock(descriptor, LOCK_EX | LOCK_NB) == 0;
    check_call(is_free || errno == EWOULDBLOCK, "locking ", folder);
    require(is_free, "E105", "another installer is using " + folder.string(), __func__);
    return descriptor;
}

/// Removes a folder at the end of a scope. If that fails, the next installation removes it.
struct FolderRemover {
    fs::path const folder;
    ~FolderRemover() {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }
};

/// Unpacks the products into a work folder, which then replaces the installation.
void carry_out(Plan const& plan) {
    // Missing parent folders are part of what is moved into place. If another process creates them
    // meanwhile, the installation fails.
    auto target = plan.folder;
    while (!fs::exists(target.parent_path())) {
        target = target.parent_path();
    }
    auto const parent = target.parent_path();
    auto const work = parent / ("." + target.filename().string() + ".installing");
    auto const locked = lock(parent);
    if (fs::exists(work)) {
        logger::append_message("removing what a killed installer left in " + work.string());
        fs::remove_all(work);
    }
    struct stat previous = {};
    auto const exists = target == plan.folder && ::stat(target.c_str(), &previous) == 0;
    require(plan.overwrite || !exists || fs::is_empty(target), "E106",
            "overwrite is not yes, but there are files in " + target.string(), __func__);
    FolderRemover const remover = {work};
    auto const folder = work / plan.folder.lexically_relative(parent);
    fs::create_directories(folder);
    fs::permissions(work, fs::perms::owner_all);  // The previous files can be private.
    fs::current_path(folder);                     // All other paths are absolute.
    unpack(plan);
    auto const unpacked = work / target.filename();
    if (exists) {
        check_call(::chown(unpacked.c_str(), previous.st_uid, previous.st_gid) == 0 &&
                       ::chmod(unpacked.c_str(), previous.st_mode & 07777U) == 0,
                   "keeping the owner and the permissions of ", target);
    }
    // The exchange is atomic, so a complete installation is in place at any time. The files are first
    // written to the disk, so that this is also true after a power failure.
    check_call(::syncfs(locked) == 0, "writing ", work);
    unsigned const flags = exists ? RENAME_EXCHANGE : 0;
    auto const result = ::renameat2(AT_FDCWD, unpacked.c_str(), AT_FDCWD, target.c_str(), flags);
    check_call(result == 0, "replacing (not every file system can exchange folders) ", target);
}

/// Prints and logs why and where the installation ended early.
int fail(std::string const& why, std::string const& location, int status) {
    auto const text = why + " (" + location + ")";
    std::cerr << "example_installer: " << text << '\n';
    logger::append_message(text);
    return status;
}

int run(std::string const& input_file, std::string const& log_file) {
    std::optional<logger::Logger> log;  // It still exists when an exception is caught.
    auto const* step = "run";
    try {
        log.emplace(fs::absolute(log_file).string());
        auto const inputs = InputFileParser().parse(TextConversion::fromUtf8(input_file));
        logger::append_file(input_file);
        step = "make_plan";
        auto const plan = make_plan(inputs, input_file, fs::absolute(log_file));
        auto const locale = TextConversion::toUtf8(installer_locale::getLocale());
        auto const sandbox = SandboxWorkflowDetector().isSandboxWorkflow();
        say("installing to " + plan.folder.string() +
            " (workflow: " + (sandbox ? "sandbox" : "ordinary") + ", locale: " + locale + ")");
        step = "carry_out";
        carry_out(plan);
        say("installation finished");
        return 0;
    } catch (interrupt::Exception const& stopped) {
        return fail(stopped.what(), createLocation("example_installer", step), 130);
    } catch (InstallerException const& error) {
        auto const why = error.getErrorCode() + ": " + error.getPrimaryErrorMessage() + " ";
        return fail(why + error.what(), error.getLocation(), 1);
    } catch (std::exception const& error) {
        return fail(error.what(), createLocation("example_installer", step), 1);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: example_installer INPUT_FILE LOG_FILE\n";
        return 2;
    }
    std::setlocale(LC_CTYPE, "C.UTF-8");  // File names are UTF-8, also in other locales.
    ::signal(SIGXFSZ, SIG_IGN);           // A file that is too large causes a write error.
    ::signal(SIGPIPE, SIG_IGN);           // Closed output does not end the installation.
    StopSignals const stop_signals;
    return run(argv[1], argv[2]);
}
