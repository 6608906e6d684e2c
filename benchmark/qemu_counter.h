#ifndef BENCH_QEMU_COUNTER_H
#define BENCH_QEMU_COUNTER_H

#include <cstdint>

/// The number of the system call with which a program obtains its instruction count; see qemu_counter.cpp.
constexpr int64_t countCall = 0x636F756E;

#endif
