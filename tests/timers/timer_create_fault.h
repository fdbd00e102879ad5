// The test program defines timer_create (ELF interposition, like the system-log capture) so
// that a test can make the next system timer creations fail.
#pragma once

namespace tarvik_test {

// The next `count` calls of timer_create fail with EAGAIN.
void FailNextTimerCreates(int count);

}  // namespace tarvik_test
