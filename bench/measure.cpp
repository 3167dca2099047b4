// measure RUNS COMMAND... --vs COMMAND...: runs two commands in turn and prints, for wall time and
// CPU time in microseconds and for page faults:
//
//     FIGURE  MEDIAN MIN MAX  MEDIAN MIN MAX  MEDIAN MIN MAX
//
// of the first command, of the second, and of the ratio of each pair of runs. Discards the
// commands' output. The first run of each does not count.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <vector>

namespace
{

enum Figure { kWall, kCpu, kFaults, kFigures };
constexpr std::array<const char *, kFigures> kNames{"wall", "cpu", "faults"};

struct Command {
    std::vector<char *> arguments; ///< with the null at the end
    std::array<std::vector<double>, kFigures> figures;
};

[[noreturn]] void Fail(const char *step, const char *what)
{
    std::fprintf(stderr, "measure: %s: %s\n", step, what);
    std::exit(1);
}

double Microseconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
}

std::array<double, kFigures> Run(const Command &command, const posix_spawn_file_actions_t &quiet)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    pid_t id;
    const int error =
        posix_spawnp(&id, command.arguments[0], &quiet, nullptr, command.arguments.data(), environ);
    if (error != 0) {
        Fail(command.arguments[0], std::strerror(error));
    }
    int status;
    rusage usage;
    if (wait4(id, &status, 0, &usage) < 0 || !WIFEXITED(status)) {
        Fail(command.arguments[0], "did not end by itself");
    }
    const std::chrono::duration<double, std::micro> wall = Clock::now() - start;
    return {wall.count(), Microseconds(usage.ru_utime) + Microseconds(usage.ru_stime),
            static_cast<double>(usage.ru_minflt + usage.ru_majflt)};
}

void Print(std::vector<double> figures)
{
    std::sort(figures.begin(), figures.end());
    std::printf(" %.6g %.6g %.6g", figures[figures.size() / 2], figures.front(), figures.back());
}

} // namespace

int main(int argc, char **argv)
{
    char **const end = argv + argc;
    char **const versus =
        std::find_if(argv, end, [](const char *word) { return std::strcmp(word, "--vs") == 0; });
    const int runs = argc > 1 ? static_cast<int>(std::strtol(argv[1], nullptr, 10)) : 0;
    if (runs < 1 || versus - argv < 3 || end - versus < 2) {
        Fail("usage", "measure RUNS COMMAND... --vs COMMAND...");
    }
    std::array<Command, 2> commands;
    commands[0].arguments.assign(argv + 2, versus);
    commands[1].arguments.assign(versus + 1, end);

    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&quiet, 2, "/dev/null", O_WRONLY, 0);
    for (Command &command : commands) {
        command.arguments.push_back(nullptr);
        Run(command, quiet);
    }
    for (int run = 0; run < runs; ++run) {
        for (Command &command : commands) {
            const auto figures = Run(command, quiet);
            for (size_t i = 0; i < figures.size(); ++i) {
                command.figures[i].push_back(figures[i]);
            }
        }
    }
    for (size_t i = 0; i < kNames.size(); ++i) {
        const std::vector<double> &first = commands[0].figures[i];
        const std::vector<double> &second = commands[1].figures[i];
        std::vector<double> ratios;
        std::transform(first.begin(), first.end(), second.begin(), std::back_inserter(ratios),
                       std::divides{});
        std::printf("%s", kNames[i]);
        Print(first);
        Print(second);
        Print(ratios);
        std::puts("");
    }
}
