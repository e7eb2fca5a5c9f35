#include "installation.h"

#include <fcntl.h>
#include <install_cpputil/utilities/installer_exception.h>
#include <install_cpputil/utilities/interrupt.h>
#include <install_cpputil/utilities/logger.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>

using namespace install::cpputil;
namespace fs = std::filesystem;

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

Installation::Installation(fs::path const& target) : target_(target), place_(target) {
    while (!fs::exists(place_.parent_path())) {
        place_ = place_.parent_path();
    }
    name_ = place_.filename();
}

Installation::~Installation() {
    try {
        if (work_.get() >= 0) {
            check_call(::fchdir(work_.get()), workName_);
            if (isDisposable_) {
                for (auto const& entry : fs::directory_iterator(".")) {
                    fs::remove_all(entry.path());
                }
            }
            check_call(::chdir(".."), workName_);
            check_call(::rmdir(workName_.c_str()), "cannot remove " + sibling(workName_));
        }
    } catch (std::exception const& error) {  // The installation itself is not affected.
        say(error.what());
    }
    if (lock_.get() >= 0) {
        ::unlink(('.' + name_ + ".lock").c_str());
    }
}

Receipt Installation::prepare() {
    fs::current_path(place_.parent_path());
    lock();
    auto receipt = readPrevious();
    createWork();
    if (exists_) {
        probe();
    }
    return receipt;
}

void Installation::lock() {
    auto const name = '.' + name_ + ".lock";
    auto const path = sibling(name);
    auto const flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    Descriptor file(check_call(::open(name.c_str(), flags, 0600), "cannot open " + path));
    struct stat own = {};
    struct stat named = {};
    check_call(::fstat(file.get(), &own), path);
    require(S_ISREG(own.st_mode) && own.st_uid == ::geteuid(), "E105",
            "another user has created " + path);
    auto const result = ::flock(file.get(), LOCK_EX | LOCK_NB);
    // A finished installer may have removed the file after it was opened.
    auto const is_removed =
        result == 0 && (::lstat(name.c_str(), &named) != 0 || named.st_ino != own.st_ino);
    require(!is_removed && (result == 0 || errno != EWOULDBLOCK), "E105",
            "another installer has locked " + path);
    check_call(result, "cannot lock " + path);
    lock_ = std::move(file);
}

Receipt Installation::readPrevious() {
    exists_ = ::lstat(name_.c_str(), &previous_) == 0;
    if (!exists_) {
        return {};
    }
    require(S_ISDIR(previous_.st_mode), "E103",
            "not a directory, or a dangling link: " + place_.string());
    require(place_ == target_, "E105", "another process has created " + place_.string());
    auto receipt = read_receipt(place_);
    require(!receipt.products.empty() || fs::is_empty(place_), "E106",
            "no receipt of an earlier installation, but files in " + place_.string());
    return receipt;
}

void Installation::createWork() {
    auto const prefix = '.' + name_ + ".work-";
    for (auto const& entry : fs::directory_iterator(place_.parent_path())) {
        if (entry.path().filename().string().rfind(prefix, 0) == 0) {
            say("a killed installer left a directory, which may contain files of the user: " +
                entry.path().string());
        }
    }
    auto name = prefix + "XXXXXX";
    check_call(::mkdtemp(name.data()) == nullptr ? -1 : 0, "cannot create " + sibling(name));
    Descriptor work(
        check_call(::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC),
                   "cannot open " + sibling(name)));
    struct stat status = {};
    check_call(::fstat(work.get(), &status), name);
    check_call(::fchdir(work.get()), name);
    require(status.st_uid == ::geteuid() && (status.st_mode & 0777U) == 0700 && fs::is_empty("."),
            "E105", "another user has replaced " + sibling(name));
    workName_ = name;
    work_ = std::move(work);
}

/// Rejects a target that cannot be moved or exchanged.
void Installation::probe() const {
    fs::create_directories("a/entry");
    fs::create_directory("b");
    check_call(::renameat2(AT_FDCWD, "a", AT_FDCWD, "b", RENAME_EXCHANGE),
               "the file system cannot exchange directories: " + place_.string());
    // Always fails, because "b" is not empty now. The system reports any other error first.
    auto const result = ::rename(("../" + name_).c_str(), "b");
    require(errno != EBUSY, "E103", "a mount point: " + place_.string());
    check_call(errno == ENOTEMPTY || errno == EEXIST ? 0 : result,
               "cannot move " + place_.string());
    fs::remove_all("b");
    fs::remove("a");
}

void Installation::enterNew() const {
    auto const directory = target_.lexically_relative(place_.parent_path());
    fs::create_directories(directory);
    if (exists_) {
        check_call(::chown(name_.c_str(), previous_.st_uid, previous_.st_gid),
                   "cannot set the owner of a new " + place_.string());
    }
    fs::current_path(directory);
}

void Installation::replace(Receipt const& previous) {
    check_call(::fchdir(work_.get()), workName_);
    if (exists_) {
        check_call(::chmod(name_.c_str(), previous_.st_mode & 07777U),
                   "cannot set the permissions of a new " + place_.string());
    }
    check_call(::syncfs(work_.get()), "cannot write " + place_.string());
    move(name_, "../" + name_, exists_ ? RENAME_EXCHANGE : 0, exists_ ? "replaced " : "created ");
    removePrevious(previous);
}

void Installation::remove(Receipt const& receipt) {
    move("../" + name_, name_, 0, "removed ");
    removePrevious(receipt);
}

void Installation::move(std::string const& from, std::string const& to, unsigned flags,
                        char const* done) {
    interrupt::throw_if_set("before the exchange");
    auto const result = ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags);
    isDisposable_ = result != 0;
    check_call(result, "cannot create, replace or remove " + place_.string());
    say(done + place_.string());
}

/// Removes the previous installation from the work directory. Keeps the user's files next to the
/// target.
void Installation::removePrevious(Receipt const& receipt) const {
    if (!exists_) {
        return;
    }
    auto const kept = remove_listed(name_, receipt);
    if (!fs::exists(fs::symlink_status(name_))) {
        return;
    }
    auto number = 1;
    auto const path = [&] { return name_ + ".kept-" + std::to_string(number); };
    while (::rename(name_.c_str(), ("../" + path()).c_str()) != 0) {
        check_call(errno == ENOTEMPTY || errno == EEXIST || errno == ENOTDIR ? 0 : -1,
                   "the user's files are in " + sibling(workName_));
        ++number;
    }
    for (auto const& [entry, why] : kept) {
        say("kept (" + why + "): " + sibling(path()) + '/' + entry);
    }
}
