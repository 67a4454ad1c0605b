// What is put back when a signal ends the program, and whose signals are left alone.
#include "util/ending.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace kx {
namespace {

void say(void* text) {
    const char* const one = static_cast<const char*>(text);
    (void)!write(STDERR_FILENO, one, 1);
}

void catch_it(int) {
    say(const_cast<char*>("own handler"));
}

using Handler = void (*)(int);

// Raises the signal while two of three are added and, if that is no end, when none is any more.
[[noreturn]] void raise_twice(int number, Handler before, Handler after) {
    const rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    EndingRestorer first{say, const_cast<char*>("first")};
    EndingRestorer second{say, const_cast<char*>("second")};
    EndingRestorer third{say, const_cast<char*>("third")};
    std::signal(number, before);
    for (EndingRestorer* one : {&first, &second, &third, &second}) {
        ending_add(*one);
    }
    ending_remove(second);
    if (after != before) {
        std::signal(number, after);
    }
    raise(number);
    ending_remove(third);
    ending_remove(first);
    raise(number);
    _exit(7);
}

TEST(Ending, RestoresLatestFirstWhereTheDefaultActionEndsTheProgram) {
    const struct {
        int number;
        Handler before, after;
        int ended_by; // or 0
        const char* told;
    } rows[] = {
        {SIGINT, SIG_DFL, SIG_DFL, SIGINT, "^tf$"},   {SIGSEGV, SIG_DFL, SIG_DFL, SIGSEGV, "^tf$"},
        {SIGPIPE, SIG_DFL, SIG_DFL, SIGPIPE, "^tf$"}, {SIGXCPU, SIG_DFL, SIG_DFL, SIGXCPU, "^tf$"},
        {SIGHUP, SIG_IGN, SIG_IGN, 0, "^$"},          {SIGINT, catch_it, catch_it, 0, "^oo$"},
        {SIGTERM, SIG_DFL, catch_it, 0, "^oo$"},      {SIGTERM, SIG_DFL, SIG_IGN, 0, "^$"},
        {SIGCHLD, SIG_DFL, SIG_DFL, 0, "^$"},
    };
    for (const auto& row : rows) {
        const auto ended = [&](int status) {
            return row.ended_by != 0 ? testing::KilledBySignal(row.ended_by)(status)
                                     : testing::ExitedWithCode(7)(status);
        };
        EXPECT_EXIT(raise_twice(row.number, row.before, row.after), ended, row.told)
            << "signal " << row.number;
    }
}

} // namespace
} // namespace kx
