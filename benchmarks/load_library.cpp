#include "utilities/interrupt.h"

int main() {
    return install::cpputil::interrupt::is_set() ? 1 : 0;
}
