#include <boost/log/core.hpp>

int main() {
    return boost::log::core::get()->get_logging_enabled() ? 0 : 1;
}
