#pragma once

/// \file
/// A process-wide interrupt flag, by which one thread of an installer asks the others to stop.
///
///     // in the thread that waits for Ctrl-C
///     install::cpputil::interrupt::set();
///
///     // in the work, wherever it is able to stop
///     install::cpputil::interrupt::throw_if_set("unpacking");
///
/// The work unwinds to whoever catches `interrupt::Exception`. The flag stays raised until
/// `detail::unset` lowers it; it is lowered when the library is loaded.
///
/// Every change of the flag, every positive reading and every throw is also told on the diagnostic
/// channel "install::cpputil::interrupt".
///
/// \par Thread safety
///     Every function may be called from any thread at any time; the flag is a sequentially
///     consistent atomic. `set` and `detail::unset` are not safe in a signal handler, since their
///     records take a lock and allocate memory.

#include <stdexcept>
#include <string>

#include "../platform/export.h"

namespace install::cpputil::interrupt {

/// Thrown where work stops because the flag is raised. `what()` is "Interrupted." or, with a tag,
/// "Interrupted. " and the tag.
class INSTALL_CPPUTIL_EXPORT Exception : public std::runtime_error {
public:
    /// Makes an exception without a tag.
    Exception();

    /// Makes an exception with \p tag, which tells where the work stopped; it may be empty.
    explicit Exception(std::string const& tag);

    ~Exception() override;
};

/// Raises the flag.
INSTALL_CPPUTIL_EXPORT void set() noexcept;

/// Returns whether the flag is raised. Costs one atomic load while it is not.
INSTALL_CPPUTIL_EXPORT bool is_set() noexcept;

/// Throws if the flag is raised, and leaves it raised. Costs one atomic load while it is not: make
/// a long \p tag beforehand where that matters.
/// \param tag  goes into the exception's text; an empty one stands for an exception without a tag
/// \throws Exception if the flag is raised
/// \throws whatever a sink of the logging core throws for the record of the throw
INSTALL_CPPUTIL_EXPORT void throw_if_set(std::string const& tag = std::string());

namespace detail {

/// Lowers the flag.
INSTALL_CPPUTIL_EXPORT void unset() noexcept;

}  // namespace detail

namespace test {

/// Gives a test time to raise the flag at this point of an installer: does nothing while the
/// process environment has no variable called \p name; otherwise, whatever its value, holds the
/// calling thread for one minute and tests the flag every tenth of a second. Signals do not
/// shorten the minute.
/// \param name  the variable's exact name, ended by a NUL; never null
/// \throws Exception with the tag "env NAME is set." once the flag is seen raised
/// \throws whatever a sink of the logging core throws for a record
/// \par Thread safety
///     No other thread may change the environment while the call looks the variable up.
INSTALL_CPPUTIL_EXPORT void pause_and_throw_if_set(char const* name);

}  // namespace test
}  // namespace install::cpputil::interrupt
