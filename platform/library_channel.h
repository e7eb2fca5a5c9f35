#pragma once

/// \file
/// The severities of diagnostic records.

#include <atomic>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>

namespace install::cpputil {

/// The severities of diagnostic records, which are also bits of a channel's mask.
enum class Severity : int {
    details = 4,  ///< what an operation reads, writes and decides
    changes = 8,  ///< changes of state, and refusals
};

/// \cond INTERNAL
/// A channel of the library's own units, which any thread may write to even while the process ends.
///
/// It is `constinit` and has no destructor. Between the constructor and the destructor of its
/// `Lifetime` it behaves like a `DiagnosticChannel`; before and after, it drops every record.
class LibraryChannel final {
public:
    using Piece = std::variant<std::string_view, std::u16string_view, bool>;

    constexpr LibraryChannel() noexcept = default;
    LibraryChannel(LibraryChannel const&) = delete;
    LibraryChannel& operator=(LibraryChannel const&) = delete;

    bool isEnabled(Severity severity) const noexcept {
        return (enabledSeverities_.load(std::memory_order_relaxed) &
                static_cast<unsigned>(severity)) != 0;
    }

    void write(Severity severity, std::initializer_list<Piece> pieces) {
        if (isEnabled(severity)) {
            push(severity, pieces);
        }
    }

    /// Connects a channel to the logging core, under a name, for as long as the object exists.
    class Lifetime {
    public:
        Lifetime(LibraryChannel& channel, std::string name);
        Lifetime(Lifetime const&) = delete;
        Lifetime& operator=(Lifetime const&) = delete;
        ~Lifetime();

    private:
        LibraryChannel& channel_;
    };

private:
    friend class DiagnosticChannel;
    class Source;
    class RecordInProgress;

    void open(std::string name);
    void close() noexcept;
    void push(Severity severity, std::initializer_list<Piece> pieces);

    std::atomic<unsigned> enabledSeverities_{0};
    std::atomic<unsigned> recordsInProgress_{0};
    // Null while the channel is closed.
    std::atomic<Source*> source_{nullptr};
    // The next open channel, guarded by the registry's mutex.
    LibraryChannel* next_ = nullptr;
};
/// \endcond

}  // namespace install::cpputil
