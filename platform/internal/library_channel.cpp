#include "platform/internal/library_channel.h"

#include <pthread.h>

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/keywords/channel.hpp>
#include <boost/log/keywords/severity.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>
#include <boost/log/sources/severity_logger.hpp>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "platform/internal/cancellation_guard.h"
#include "platform/text_conversion.h"

namespace install::cpputil {
namespace {

namespace log = boost::log;

static_assert(std::is_trivially_destructible_v<LibraryChannel>);

class PieceWriter {
public:
    explicit PieceWriter(log::record_ostream& stream) : stream_(stream) {}

    void operator()(std::string_view text) const {
        stream_.write(text.data(), static_cast<std::streamsize>(text.size()));
    }

    // The stream's own conversion of UTF-16 never returns for text that ends in an unpaired
    // surrogate.
    void operator()(std::u16string_view text) const {
        (*this)(std::string_view(TextConversion::toUtf8(text)));
    }

    void operator()(bool value) const { stream_ << value; }

private:
    log::record_ostream& stream_;
};

/// Forces Boost.Log to create its severity storage now; created with the first record, it would be
/// destroyed before the library's channels.
void create_severity_storage() {
    log::sources::severity_logger<int> const logger;
    static_cast<void>(logger.get_attributes().find("Severity")->second.get_value().extract<int>());
}

}  // namespace

constinit LibraryMutex LibraryChannel::registryMutex_(LibraryMutex::Rank::channel_registry);
constinit LibraryChannel* LibraryChannel::first_ = nullptr;
constinit bool LibraryChannel::hasEnded_ = false;

/// The connection of a channel to the logging core.
class LibraryChannel::Source {
public:
    explicit Source(std::string name)
        : name_(std::move(name)), logger_(log::keywords::channel = name_) {}

    std::string const& name() const noexcept { return name_; }

    void push(Severity severity, std::initializer_list<Piece> pieces) {
        auto record = logger_.open_record(log::keywords::severity = static_cast<int>(severity));
        if (!record) {
            return;
        }
        log::record_ostream stream(record);
        for (auto const& piece : pieces) {
            std::visit(PieceWriter(stream), piece);
        }
        stream.flush();
        logger_.push_record(std::move(record));
    }

private:
    std::string name_;
    log::sources::severity_channel_logger_mt<int, std::string> logger_;
};

/// Counts a record that is being written, so that `close` does not destroy the source meanwhile.
class LibraryChannel::RecordInProgress {
public:
    explicit RecordInProgress(LibraryChannel& channel) noexcept
        : channel_(channel), outer_(std::exchange(innermost_, this)) {
        channel_.recordsInProgress_.fetch_add(1);
    }
    RecordInProgress(RecordInProgress const&) = delete;
    RecordInProgress& operator=(RecordInProgress const&) = delete;
    ~RecordInProgress() {
        channel_.recordsInProgress_.fetch_sub(1);
        innermost_ = outer_;
    }

    /// Returns how many records of \p channel the calling thread is writing: more than 0 in a sink.
    static unsigned ownCount(LibraryChannel const& channel) noexcept {
        unsigned count = 0;
        for (auto const* record = innermost_; record != nullptr; record = record->outer_) {
            count += &record->channel_ == &channel ? 1 : 0;
        }
        return count;
    }

private:
    static thread_local constinit RecordInProgress* innermost_;

    LibraryChannel& channel_;
    // The record from whose sink the calling thread writes this one.
    RecordInProgress* const outer_;
};

thread_local constinit LibraryChannel::RecordInProgress*
    LibraryChannel::RecordInProgress::innermost_ = nullptr;

struct LibraryChannel::ForkRegistration {
    ForkRegistration() noexcept : mutex(registryMutex_) {
        static_cast<void>(::pthread_atfork(nullptr, nullptr, afterForkInChild));
    }
    LibraryMutex::ForkRegistration mutex;
};

LibraryChannel::ForkRegistration LibraryChannel::forkRegistration_;

/// The threads that were writing other records do not exist in the child.
void LibraryChannel::afterForkInChild() noexcept {
    LibraryMutex::Lock const lock(registryMutex_);
    for (auto* each = first_; each != nullptr; each = each->next_) {
        each->recordsInProgress_.store(RecordInProgress::ownCount(*each));
    }
}

void LibraryChannel::open(std::string name) {
    auto source = std::make_unique<Source>(std::move(name));
    LibraryMutex::Lock const lock(registryMutex_);
    source_.store(source.release());
    next_ = std::exchange(first_, this);
}

bool LibraryChannel::close(TimePoint deadline) noexcept {
    {
        LibraryMutex::Lock const lock(registryMutex_);
        auto** link = &first_;
        while (*link != this) {
            link = &(*link)->next_;
        }
        *link = next_;
        enabledSeverities_.store(0);
    }
    auto* const source = source_.exchange(nullptr);
    // During process exit, other threads may still write records. They must be out of Boost.Log
    // before it is destroyed.
    auto const own = RecordInProgress::ownCount(*this);
    bool const is_unused =
        wait_until(deadline, [&] { return recordsInProgress_.load() == own; }) && own == 0;
    if (is_unused) {
        delete source;
    }
    return is_unused;
}

void LibraryChannel::push(Severity severity, std::initializer_list<Piece> pieces) {
    // A sink may write to a file, where the thread could be cancelled inside a noexcept function.
    CancellationGuard const uncancelled;
    RecordInProgress const record(*this);
    if (auto* const source = source_.load()) {
        source->push(severity, pieces);
    }
}

void LibraryChannel::setEnabledSeverities(std::string const& name, unsigned mask) {
    LibraryMutex::Lock const lock(registryMutex_);
    bool found = false;
    for (auto* each = first_; each != nullptr; each = each->next_) {
        if (each->source_.load()->name() == name) {
            each->enabledSeverities_.store(mask, std::memory_order_relaxed);
            found = true;
        }
    }
    if (found || hasEnded_) {
        return;
    }
    std::string names;
    for (auto* each = first_; each != nullptr; each = each->next_) {
        names += (names.empty() ? "\"" : ", \"") + each->source_.load()->name() + '"';
    }
    throw std::invalid_argument("there is no diagnostic channel \"" + name +
                                "\"; the channels are " + names);
}

LibraryChannel::Lifetime::Lifetime(LibraryChannel& channel, std::string name) : channel_(channel) {
    create_severity_storage();
    channel_.open(std::move(name));
}

LibraryChannel::Lifetime::~Lifetime() {
    {
        LibraryMutex::Lock const lock(registryMutex_);
        hasEnded_ = true;
    }
    channel_.close(exit_deadline());
}

}  // namespace install::cpputil
