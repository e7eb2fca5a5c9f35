#pragma once

/// \file
/// A process-wide interrupt flag, with which one thread of an installer asks the others to stop.
///
///     // in the thread that waits for Ctrl-C
///     install::cpputil::interrupt::set();
///
///     // in the work, at every point where it can stop
///     install::cpputil::interrupt::throw_if_set("unpacking");
///
/// The work ends with an `interrupt::Exception`. The flag is initially lowered. Once raised, it
/// stays raised until `detail::unset`.
///
/// The functions write records to the diagnostic channel "install::cpputil::interrupt" when they
/// raise or lower the flag, find it raised, throw, or start a pause.
///
/// \par Thread safety
///     Every function may be called from any thread at any time; the flag is a sequentially
///     consistent atomic. No function may be called from a signal handler, because writing a record
///     locks a mutex and allocates memory.

#include <stdexcept>
#include <string>

#include "../platform/export.h"

namespace install::cpputil::interrupt {

/// Thrown by `throw_if_set` if the flag is raised. `what()` is "Interrupted." or, with a tag,
/// "Interrupted. " and the tag.
class INSTALL_CPPUTIL_EXPORT Exception : public std::runtime_error {
public:
    /// Creates an exception without a tag.
    Exception();

    /// Creates an exception with \p tag, which names the place where the work stopped; it may be
    /// empty.
    explicit Exception(std::string const& tag);

    ~Exception() override;
};

/// Raises the flag.
INSTALL_CPPUTIL_EXPORT void set() noexcept;

/// Returns whether the flag is raised. Costs one atomic load while it is not.
INSTALL_CPPUTIL_EXPORT bool is_set() noexcept;

/// Throws if the flag is raised. Does not change the flag. Costs one atomic load while the flag is
/// not raised, apart from the construction of \p tag.
/// \param tag  part of the exception's `what()`; an empty tag means an exception without a tag
/// \throws Exception if the flag is raised
/// \throws any exception that a sink of the logging core throws when the throw is recorded
INSTALL_CPPUTIL_EXPORT void throw_if_set(std::string const& tag = std::string());

namespace detail {

/// Lowers the flag.
INSTALL_CPPUTIL_EXPORT void unset() noexcept;

}  // namespace detail

namespace test {

/// Pauses so that a test can raise the flag at this point of an installer. Returns at once if the
/// process environment has no variable \p name. Otherwise, for any value of the variable, blocks
/// the calling thread for one minute and checks the flag every tenth of a second. Signals do not
/// shorten the minute. The thread may be cancelled during the pause.
/// \param name  the variable's exact name, NUL-terminated; not null
/// \throws Exception with the tag "env NAME is set." if a check finds the flag raised
/// \throws any exception that a sink of the logging core throws for a record
/// \par Thread safety
///     No other thread may change the environment while the call looks up the variable.
INSTALL_CPPUTIL_EXPORT void pause_and_throw_if_set(char const* name);

}  // namespace test
}  // namespace install::cpputil::interrupt
