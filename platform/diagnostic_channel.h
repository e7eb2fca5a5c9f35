#pragma once

#include <atomic>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "export.h"

namespace install::cpputil {

/// The severities of diagnostic records, which are also bits of a channel's mask.
enum class Severity : int {
    details = 4,  ///< what an operation sees and does
    changes = 8,  ///< changes of state, and refusals
};

/// A named channel of diagnostic records, which go to the sinks of the Boost.Log core of the
/// process that loads the library.
///
/// A record carries the attributes "Channel" (`std::string`) and "Severity" (`int`); its message is
/// made of pieces joined without separators. Every channel is off at load, so that a library which
/// nobody configured stays silent. To see its records, register a sink with the core and switch the
/// channel on:
///
///     namespace log = boost::log;
///     log::add_console_log(std::cerr, log::keywords::format = log::expressions::stream
///                                                             << log::expressions::smessage);
///     DiagnosticChannel::setEnabledSeverities("install::cpputil::logger", 4 | 8);
///
/// \par Thread safety
///     Any thread may write to a channel and change its mask at any time. What a record holds is
///     never mixed with another record; a sink receives records as its own frontend orders them.
class INSTALL_CPPUTIL_EXPORT DiagnosticChannel final {
public:
    /// One piece of a record: narrow text, UTF-16 text (shown as UTF-8) or a boolean (shown as the
    /// word true or false).
    using Piece = std::variant<std::string_view, std::u16string_view, bool>;

    /// Makes a channel that is off. Channels of one name are switched together.
    explicit DiagnosticChannel(std::string name);
    DiagnosticChannel(DiagnosticChannel const&) = delete;
    DiagnosticChannel& operator=(DiagnosticChannel const&) = delete;
    ~DiagnosticChannel();

    /// Returns whether the mask has the bit of \p severity. Costs one relaxed atomic load.
    bool isEnabled(Severity severity) const noexcept {
        return (enabledSeverities_.load(std::memory_order_relaxed) &
                static_cast<unsigned>(severity)) != 0;
    }

    /// Writes one record of \p pieces where the mask has the bit of \p severity and the logging
    /// core is enabled; does nothing otherwise.
    /// \throws TextConversionError if a piece is malformed UTF-16; no record is written then
    /// \throws whatever a sink of the logging core throws, unless the core has an exception
    ///     handler
    void write(Severity severity, std::initializer_list<Piece> pieces) {
        if (isEnabled(severity)) {
            push(severity, pieces);
        }
    }

    /// Sets the mask of the channel named \p channel to \p mask, a sum of `Severity` values; 0 is
    /// off.
    /// \throws std::invalid_argument if there is no such channel; the text names those there are
    static void setEnabledSeverities(std::string const& channel, unsigned mask);

private:
    class Logger;

    void push(Severity severity, std::initializer_list<Piece> pieces);

    std::atomic<unsigned> enabledSeverities_{0};
    std::unique_ptr<Logger> logger_;
    std::string const name_;
    // The next channel of the process, guarded by the registry's mutex.
    DiagnosticChannel* next_ = nullptr;
};

}  // namespace install::cpputil
