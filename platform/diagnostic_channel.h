#pragma once

/// \file
/// Channels of diagnostic records.

#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "export.h"

namespace install::cpputil {

class LibraryChannel;

/// The severities of diagnostic records, which are also bits of a channel's mask.
enum class Severity : int {
    details = 4,  ///< what an operation reads, writes and decides; set and rejected destinations
    changes = 8,  ///< other changes of state, and other rejected requests
};

/// A named source of diagnostic records. Records go to the sinks of the process's Boost.Log core.
///
/// A record has the attributes "Channel" (`std::string`) and "Severity" (`int`). Its message
/// consists of pieces joined without separators. Every channel is initially disabled. To see its
/// records, register a sink with the core and enable the channel:
///
///     namespace log = boost::log;
///     log::add_console_log(std::cerr, log::keywords::format = log::expressions::stream
///                                                             << log::expressions::smessage);
///     DiagnosticChannel::setEnabledSeverities("install::cpputil::logger", 4 | 8);
///
/// Flush asynchronous sinks before the library is unloaded with `dlclose`: queued records refer to
/// code in the library.
///
/// \par Thread safety
///     Any thread may write to a channel and change its mask at any time. The pieces of two records
///     never interleave; each sink receives records in the order that its own frontend defines.
/// \par Cancellation
///     A thread is not cancelled while it writes a record.
class INSTALL_CPPUTIL_EXPORT DiagnosticChannel final {
public:
    /// One piece of a record: a UTF-8 string, a UTF-16 string (converted to UTF-8) or a boolean
    /// (the word true or false).
    using Piece = std::variant<std::string_view, std::u16string_view, bool>;

    /// Creates a disabled channel, even if another channel of this name is enabled.
    explicit DiagnosticChannel(std::string name);
    DiagnosticChannel(DiagnosticChannel const&) = delete;
    DiagnosticChannel& operator=(DiagnosticChannel const&) = delete;

    /// Removes the channel. No other thread may be using it.
    ~DiagnosticChannel();

    /// Returns whether the mask has the bit of \p severity. Costs one relaxed atomic load.
    bool isEnabled(Severity severity) const noexcept;

    /// Writes one record of \p pieces if the mask has the bit of \p severity and the logging core
    /// is enabled. Does nothing otherwise.
    /// \throws TextConversionError if a piece is malformed UTF-16; no record is written then
    /// \throws any exception that a sink of the logging core throws, unless the core has an
    ///     exception handler
    void write(Severity severity, std::initializer_list<Piece> pieces);

    /// Sets the mask of every channel named \p channel to \p mask, a bitwise OR of `Severity`
    /// values; 0 disables the channel.
    /// \throws std::invalid_argument if there is no such channel; `what()` lists the existing ones.
    ///     Never throws once the library's channels are being destroyed
    static void setEnabledSeverities(std::string const& channel, unsigned mask);

private:
    std::unique_ptr<LibraryChannel> channel_;
};

}  // namespace install::cpputil
