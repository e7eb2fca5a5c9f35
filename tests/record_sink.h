#pragma once

// A sink for diagnostic records.

#include <boost/log/attributes/value_extraction.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions/message.hpp>
#include <boost/log/sinks/basic_sink_backend.hpp>
#include <boost/log/sinks/unlocked_frontend.hpp>
#include <boost/make_shared.hpp>
#include <mutex>
#include <utility>

#include "platform/diagnostic_channel.h"
#include "tests/files.h"

namespace install::cpputil::tests {

/// A sink of the logging core that collects the records of one channel. The constructor
/// sets the channel's mask; the destructor disables the channel.
class RecordSink {
public:
    using Hook = std::function<void(std::string const& record)>;

    explicit RecordSink(std::string const& channel, unsigned mask = 4 | 8) {
        backend_->channel = channel;
        auto const sink = boost::make_shared<boost::log::sinks::unlocked_sink<Backend>>(backend_);
        boost::log::core::get()->add_sink(sink);
        DiagnosticChannel::setEnabledSeverities(channel, mask);
        removal_ = Undo(nullptr, [channel, sink](void*) {
            DiagnosticChannel::setEnabledSeverities(channel, 0);
            boost::log::core::get()->remove_sink(sink);
        });
    }

    /// Returns the records since the last call, each as its severity, a colon and its message.
    Strings take() {
        std::lock_guard const lock(backend_->mutex);
        return std::exchange(backend_->records, {});
    }

    /// Calls \p hook with each later record before the record is collected. No other thread may be
    /// writing records.
    void callForEach(Hook hook) { backend_->hook = std::move(hook); }

private:
    struct Backend : boost::log::sinks::basic_sink_backend<boost::log::sinks::concurrent_feeding> {
        void consume(boost::log::record_view const& record) {
            if (boost::log::extract_or_throw<std::string>("Channel", record) != channel) {
                return;
            }
            auto const severity = boost::log::extract_or_throw<int>("Severity", record);
            auto const text =
                std::to_string(severity) + ":" + record[boost::log::expressions::smessage].get();
            if (hook) {
                hook(text);
            }
            std::lock_guard const lock(mutex);
            records.push_back(text);
        }

        std::string channel;
        Hook hook;
        std::mutex mutex;
        Strings records;
    };

    boost::shared_ptr<Backend> backend_ = boost::make_shared<Backend>();
    Undo removal_;
};

}  // namespace install::cpputil::tests
