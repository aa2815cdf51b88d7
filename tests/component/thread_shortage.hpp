// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace corvane::test {

// While one exists, no std::thread can be made by the code that is linked into the test program.
class ThreadShortage {
public:
    ThreadShortage();
    ~ThreadShortage();
    ThreadShortage(const ThreadShortage &) = delete;
    ThreadShortage &operator=(const ThreadShortage &) = delete;
};

} // namespace corvane::test
