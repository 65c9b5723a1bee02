// Runs one command with its output discarded and prints "<wall s> <cpu s> <peak
// RSS KiB> <exit status>". The peak comes from the kernel's accounting of the
// child; it includes what the child held before exec, a copy of this small
// program rather than of the (much larger) script that measures.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: measure_child COMMAND [ARGUMENT...]\n");
        return 2;
    }
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child < 0) {
        std::perror("fork");
        return 2;
    }
    if (child == 0) {
        const int quiet = open("/dev/null", O_WRONLY);
        dup2(quiet, STDOUT_FILENO);
        dup2(quiet, STDERR_FILENO);
        execvp(argv[1], argv + 1);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) < 0) {
        std::perror("wait4");
        return 2;
    }
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    const double cpu = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                       static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    std::printf("%.6f %.6f %ld %d\n", wall.count(), cpu, usage.ru_maxrss,
                WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    return 0;
}
