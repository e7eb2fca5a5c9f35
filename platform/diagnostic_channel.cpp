#include "platform/diagnostic_channel.h"

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/keywords/channel.hpp>
#include <boost/log/keywords/severity.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>
#include <boost/log/sources/severity_logger.hpp>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <type_traits>
#include <utility>

#include "platform/internal/cancellation_guard.h"
#include "platform/internal/process_mutex.h"
#include "platform/text_conversion.h"

namespace install::cpputil {
namespace {

namespace log = boost::log;

static_assert(std::is_trivially_destructible_v<LibraryChannel>);

/// Guards first_channel, the links of the channels and has_ended.
constinit ProcessMutex registry_mutex(ProcessMutex::Rank::channel_registry);
ProcessMutex::ForkRegistration const registry_mutex_registration(registry_mutex);

/// The open channels of the process.
constinit LibraryChannel* first_channel = nullptr;

/// Set when the first of the library's own channels closes.
constinit bool has_ended = false;

class PieceWriter {
public:
    explicit PieceWriter(log::record_ostream& stream) : stream_(stream) {}

    void operator()(std::string_view text) const {
        stream_.write(text.data(), static_cast<std::streamsize>(text.size()));
    }

    // The stream's own conversion of UTF-16 loops for ever on a text that ends in half a surrogate
    // pair.
    void operator()(std::u16string_view text) const {
        (*this)(std::string_view(TextConversion::toUtf8(text)));
    }

    void operator()(bool value) const { stream_ << value; }

private:
    log::record_ostream& stream_;
};

/// Lets the logging core create the storage of severities, which it otherwise does at the first record.
/// At the end of the process, that storage would be destroyed before the library's channels.
void create_severity_storage() {
    log::sources::severity_logger<int> const logger;
    static_cast<void>(logger.get_attributes().find("Severity")->second.get_value().extract<int>());
}

}  // namespace

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
    explicit RecordInProgress(LibraryChannel& channel) noexcept : channel_(channel) {
        channel_.recordsInProgress_.fetch_add(1);
    }
    RecordInProgress(RecordInProgress const&) = delete;
    RecordInProgress& operator=(RecordInProgress const&) = delete;
    ~RecordInProgress() { channel_.recordsInProgress_.fetch_sub(1); }

private:
    LibraryChannel& channel_;
};

void LibraryChannel::open(std::string name) {
    auto source = std::make_unique<Source>(std::move(name));
    std::lock_guard const lock(registry_mutex);
    source_.store(source.release());
    next_ = std::exchange(first_channel, this);
}

void LibraryChannel::close() noexcept {
    {
        std::lock_guard const lock(registry_mutex);
        auto** link = &first_channel;
        while (*link != this) {
            link = &(*link)->next_;
        }
        *link = next_;
        enabledSeverities_.store(0);
    }
    auto* const source = source_.exchange(nullptr);
    // At the end of the process, other threads may still write records. They must leave the logging core
    // before it is destroyed. The wait is limited, because a sink may have called exit; then, the source
    // that it uses is not destroyed.
    CancellationGuard const uncancelled;
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (recordsInProgress_.load() != 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
    delete source;
}

void LibraryChannel::push(Severity severity, std::initializer_list<Piece> pieces) {
    // A sink may write to a file, where the thread could be cancelled inside a noexcept function.
    CancellationGuard const uncancelled;
    RecordInProgress const record(*this);
    if (auto* const source = source_.load()) {
        source->push(severity, pieces);
    }
}

LibraryChannel::Lifetime::Lifetime(LibraryChannel& channel, std::string name) : channel_(channel) {
    create_severity_storage();
    channel_.open(std::move(name));
}

LibraryChannel::Lifetime::~Lifetime() {
    {
        std::lock_guard const lock(registry_mutex);
        has_ended = true;
    }
    channel_.close();
}

DiagnosticChannel::DiagnosticChannel(std::string name) {
    channel_.open(std::move(name));
}

DiagnosticChannel::~DiagnosticChannel() {
    channel_.close();
}

void DiagnosticChannel::push(Severity severity, std::initializer_list<Piece> pieces) {
    channel_.push(severity, pieces);
}

void DiagnosticChannel::setEnabledSeverities(std::string const& channel, unsigned mask) {
    std::lock_guard const lock(registry_mutex);
    bool found = false;
    for (auto* each = first_channel; each != nullptr; each = each->next_) {
        if (each->source_.load()->name() == channel) {
            each->enabledSeverities_.store(mask, std::memory_order_relaxed);
            found = true;
        }
    }
    if (found || has_ended) {
        return;
    }
    std::string names;
    for (auto* each = first_channel; each != nullptr; each = each->next_) {
        names += (names.empty() ? "\"" : ", \"") + each->source_.load()->name() + '"';
    }
    throw std::invalid_argument("there is no diagnostic channel \"" + channel +
                                "\"; the channels are " + names);
}

}  // namespace install::cpputil
