#include "platform/diagnostic_channel.h"

#include <utility>

#include "platform/internal/library_channel.h"

namespace install::cpputil {

DiagnosticChannel::DiagnosticChannel(std::string name)
    : channel_(std::make_unique<LibraryChannel>()) {
    channel_->open(std::move(name));
}

DiagnosticChannel::~DiagnosticChannel() {
    // Does not wait, because no other thread may be using the channel. If one does, the channel
    // outlives this object.
    if (!channel_->close(TimePoint())) {
        static_cast<void>(channel_.release());
    }
}

bool DiagnosticChannel::isEnabled(Severity severity) const noexcept {
    return channel_->isEnabled(severity);
}

void DiagnosticChannel::write(Severity severity, std::initializer_list<Piece> pieces) {
    channel_->write(severity, pieces);
}

void DiagnosticChannel::setEnabledSeverities(std::string const& channel, unsigned mask) {
    LibraryChannel::setEnabledSeverities(channel, mask);
}

}  // namespace install::cpputil
