#pragma once

/// \file
/// Atomic replacement and removal of an installation, which keeps the files that the user has added
/// or changed.

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "product_archive.h"
#include "receipt.h"

/// Prints \p text and appends it to the log.
void say(std::string const& text);

/// Throws an InstallerException with \p code and \p why unless \p valid.
void require(bool valid, char const* code, std::string const& why,
             char const* function = __builtin_FUNCTION());

/// A directory to install to, and a work directory next to it. An object changes the current
/// directory, so create at most one in a process. Relative names stay correct even if another user
/// renames entries of the parent directory: that user can neither enter the work directory nor move
/// it to another parent, so ".." stays valid.
class Installation {
public:
    explicit Installation(std::filesystem::path const& target);
    Installation(Installation const&) = delete;
    Installation& operator=(Installation const&) = delete;
    /// Removes the work directory and the lock.
    ~Installation();

    /// Excludes other installers of the target until the object is destroyed, and creates the work
    /// directory. Rejects a target that could not be moved or exchanged. Returns the receipt of the
    /// target; an empty one if the target is empty or missing.
    Receipt prepare();

    /// Creates the new directory, with the owner of the previous one, and enters it.
    void enterNew() const;

    /// Moves the new directory into place, in exchange for the previous one. This is atomic, so a
    /// complete installation is in place at any time. The files are first written to the disk, so
    /// that this is also true after a power failure. Then removes what \p previous lists.
    void replace(Receipt const& previous);

    /// Moves the installation into the work directory, and removes what \p receipt lists.
    void remove(Receipt const& receipt);

private:
    void lock();
    Receipt readPrevious();
    void createWork();
    void probe() const;
    void move(std::string const& from, std::string const& to, unsigned flags, char const* done);
    void removePrevious(Receipt const& receipt) const;
    std::string sibling(std::string const& name) const { return place_.parent_path() / name; }

    std::filesystem::path target_;
    std::filesystem::path place_;  ///< what is moved into place: the target or its topmost missing
                                   ///< parent
    std::string name_;             ///< the file name of `place_`
    Descriptor lock_;
    bool exists_ = false;
    struct stat previous_ = {};
    std::string workName_;
    Descriptor work_;
    bool isDisposable_ = true;  ///< The work directory may be removed with its content.
};
