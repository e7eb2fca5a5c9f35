// A plugin that uses the library. unload_test.cpp loads it with dlopen.

#include <memory>
#include <new>

#include "platform/diagnostic_channel.h"
#include "utilities/input_file_parser.h"
#include "utilities/interrupt.h"
#include "utilities/logger.h"

using namespace install::cpputil;

/// Returns whether the library was in its initial state. Leaves it with a destination set, the flag
/// raised and a channel enabled.
extern "C" bool use_library(char const* log) {
    bool const fresh = !interrupt::is_set() && logger::get_destination().string().empty() &&
                       logger::detail::get_last_destination().string().empty();
    alignas(logger::Logger) static char never_destroyed[sizeof(logger::Logger)];
    new (never_destroyed) logger::Logger(std::string(log));
    logger::append_file(std::string("/dev/null"));
    DiagnosticChannel::setEnabledSeverities("install::cpputil::interrupt", 8);
    interrupt::set();
    return fresh && InputFileParser().parse(u"/dev/null").empty();
}

/// Appends \p message to the log and disables a channel.
extern "C" void log_and_disable(char const* message) {
    logger::append_message(std::string(message));
    DiagnosticChannel::setEnabledSeverities("install::cpputil::interrupt", 0);
}

/// Calls services after the library's destructors have run. Returns whether the log has no
/// destination.
extern "C" bool use_library_after_exit(char const* log) {
    log_and_disable("too late");
    logger::Logger const too_late(std::string(log) + ".new");
    logger::append_file(std::string(log));
    interrupt::set();
    return logger::get_destination().string().empty() &&
           logger::detail::get_last_destination().string().empty();
}
