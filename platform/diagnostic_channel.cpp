#include "platform/diagnostic_channel.h"

#include <boost/log/keywords/channel.hpp>
#include <boost/log/keywords/severity.hpp>
#include <boost/log/sources/record_ostream.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>
#include <boost/utility/string_view.hpp>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "platform/text_conversion.h"

namespace install::cpputil {
namespace {

namespace log = boost::log;

constinit std::mutex registry_mutex;
/// The channels of the process, linked through their next_. Guarded by registry_mutex.
constinit DiagnosticChannel* registry = nullptr;

class PieceWriter {
public:
    explicit PieceWriter(log::record_ostream& stream) : stream_(stream) {}

    void operator()(std::string_view text) const {
        stream_.write(text.data(), static_cast<std::streamsize>(text.size()));
    }

    void operator()(std::u16string_view text) const {
        // The stream's own conversion never returns from a text that ends in half a surrogate pair,
        // so malformed text must not reach it.
        static_cast<void>(TextConversion::toUtf8(text));
        stream_ << boost::u16string_view(text.data(), text.size());
    }

    void operator()(bool value) const { stream_ << value; }

private:
    log::record_ostream& stream_;
};

}  // namespace

class DiagnosticChannel::Logger {
public:
    explicit Logger(std::string const& channel) : source_(log::keywords::channel = channel) {}

    void push(Severity severity, std::initializer_list<Piece> pieces) {
        auto record = source_.open_record(log::keywords::severity = static_cast<int>(severity));
        if (!record) {
            return;
        }
        log::record_ostream stream(record);
        for (auto const& piece : pieces) {
            std::visit(PieceWriter(stream), piece);
        }
        stream.flush();
        source_.push_record(std::move(record));
    }

private:
    log::sources::severity_channel_logger_mt<int, std::string> source_;
};

DiagnosticChannel::DiagnosticChannel(std::string name)
    : logger_(std::make_unique<Logger>(name)), name_(std::move(name)) {
    std::lock_guard const lock(registry_mutex);
    next_ = std::exchange(registry, this);
}

DiagnosticChannel::~DiagnosticChannel() {
    std::lock_guard const lock(registry_mutex);
    auto** link = &registry;
    while (*link != this) {
        link = &(*link)->next_;
    }
    *link = next_;
}

void DiagnosticChannel::push(Severity severity, std::initializer_list<Piece> pieces) {
    logger_->push(severity, pieces);
}

void DiagnosticChannel::setEnabledSeverities(std::string const& channel, unsigned mask) {
    bool found = false;
    std::string names;
    std::lock_guard const lock(registry_mutex);
    for (auto* each = registry; each != nullptr; each = each->next_) {
        if (each->name_ == channel) {
            each->enabledSeverities_.store(mask, std::memory_order_relaxed);
            found = true;
        }
        names += (names.empty() ? "\"" : ", \"") + each->name_ + '"';
    }
    if (!found) {
        throw std::invalid_argument("there is no diagnostic channel \"" + channel + "\", only " +
                                    names);
    }
}

}  // namespace install::cpputil
