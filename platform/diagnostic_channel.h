#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

#include "export.h"
#include "library_channel.h"

namespace install::cpputil {

/// A named channel of diagnostic records, which go to the sinks of the Boost.Log core of the process.
///
/// A record has the attributes "Channel" (`std::string`) and "Severity" (`int`). Its message consists
/// of pieces joined without separators. Every channel is off when the library is loaded. To see its
/// records, register a sink with the core and switch the channel on:
///
///     namespace log = boost::log;
///     log::add_console_log(std::cerr, log::keywords::format = log::expressions::stream
///                                                             << log::expressions::smessage);
///     DiagnosticChannel::setEnabledSeverities("install::cpputil::logger", 4 | 8);
///
/// Flush asynchronous sinks before the library is unloaded with `dlclose`: the records they keep
/// refer to code of the library.
///
/// \par Thread safety
///     Any thread may write to a channel and change its mask at any time. The pieces of two records
///     never interleave; each sink receives records in the order that its own frontend defines.
/// \par Cancellation
///     A thread is not cancelled while it writes a record.
class INSTALL_CPPUTIL_EXPORT DiagnosticChannel final {
public:
    /// One piece of a record: narrow text, UTF-16 text (converted to UTF-8) or a boolean (the word
    /// true or false).
    using Piece = LibraryChannel::Piece;

    /// Creates a channel that is off. Channels of the same name are switched together.
    explicit DiagnosticChannel(std::string name);
    DiagnosticChannel(DiagnosticChannel const&) = delete;
    DiagnosticChannel& operator=(DiagnosticChannel const&) = delete;

    /// Removes the channel. No other thread may be using it.
    ~DiagnosticChannel();

    /// Returns whether the mask has the bit of \p severity. Costs one relaxed atomic load.
    bool isEnabled(Severity severity) const noexcept { return channel_.isEnabled(severity); }

    /// Writes one record of \p pieces if the mask has the bit of \p severity and the logging core is
    /// enabled. Does nothing otherwise.
    /// \throws TextConversionError if a piece is malformed UTF-16; no record is written then
    /// \throws any exception that a sink of the logging core throws, unless the core has an exception
    ///     handler
    void write(Severity severity, std::initializer_list<Piece> pieces) {
        if (isEnabled(severity)) {
            push(severity, pieces);
        }
    }

    /// Sets the mask of every channel named \p channel to \p mask, a sum of `Severity` values; 0 is
    /// off.
    /// \throws std::invalid_argument if there is no such channel; `what()` lists the existing ones.
    ///     Does not throw at the end of the process, after a channel of the library has been destroyed
    static void setEnabledSeverities(std::string const& channel, unsigned mask);

private:
    void push(Severity severity, std::initializer_list<Piece> pieces);

    LibraryChannel channel_;
};

}  // namespace install::cpputil
