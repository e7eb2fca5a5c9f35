#include "platform/internal/library_channel.h"

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
LibraryMutex::ForkRegistration const LibraryChannel::registryMutexRegistration_(registryMutex_);
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
    LibraryMutex::Lock const lock(registryMutex_);
    source_.store(source.release());
    next_ = std::exchange(first_, this);
}

void LibraryChannel::close() noexcept {
    {
        LibraryMutex::Lock const lock(registryMutex_);
        auto** link = &first_;
        while (*link != this) {
            link = &(*link)->next_;
        }
        *link = next_;
        enabledSeverities_.store(0);
    }
    // During process exit, other threads may still write records. They must be out of Boost.Log
    // before it is destroyed. A source that is still in use after a second is not destroyed.
    auto* const source = source_.exchange(nullptr);
    if (wait_until(in_a_second(), [this] { return recordsInProgress_.load() == 0; })) {
        delete source;
    }
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
    channel_.close();
}

}  // namespace install::cpputil
