#pragma once

#include <atomic>
#include <initializer_list>
#include <string>

#include "platform/diagnostic_channel.h"
#include "platform/internal/library_mutex.h"

namespace install::cpputil {

/// The implementation of a channel of diagnostic records, usable while the process exits.
///
/// The library's own channels are `constinit`, and the class has no destructor: a channel drops
/// every record before it is opened and after it is closed.
class LibraryChannel final {
public:
    using Piece = DiagnosticChannel::Piece;

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

    static void setEnabledSeverities(std::string const& name, unsigned mask);

    /// Connects the channel to the logging core.
    void open(std::string name);

    /// Disconnects the channel. Waits until \p deadline for records that other threads are writing.
    /// Returns whether the channel is unused: neither a thread that did not finish in time nor a
    /// sink that called exit is still writing a record.
    bool close(TimePoint deadline) noexcept;

    /// Keeps one of the library's own channels open while the library is loaded.
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
    class Source;
    class RecordInProgress;

    void push(Severity severity, std::initializer_list<Piece> pieces);

    static void afterForkInChild() noexcept;

    static LibraryMutex registryMutex_;
    struct ForkRegistration;
    static ForkRegistration forkRegistration_;
    // The open channels of the process.
    static LibraryChannel* first_ GUARDED_BY(registryMutex_);
    // Set when the first of the library's own channels closes.
    static bool hasEnded_ GUARDED_BY(registryMutex_);

    std::atomic<unsigned> enabledSeverities_{0};
    std::atomic<unsigned> recordsInProgress_{0};
    // Null while the channel is closed.
    std::atomic<Source*> source_{nullptr};
    // The next open channel.
    LibraryChannel* next_ GUARDED_BY(registryMutex_) = nullptr;
};

}  // namespace install::cpputil
