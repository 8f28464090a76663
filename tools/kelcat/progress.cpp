#include "progress.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <stdio_ext.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

bool line_shown;

void clear_line()
{
    if (line_shown) {
        fputs("\r\033[K", stderr);
        line_shown = false;
    }
}

std::string amount(double bytes)
{
    static const char *const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
    size_t unit = 0;
    while (bytes >= 1024 && unit + 1 < sizeof(units) / sizeof(units[0])) {
        bytes /= 1024;
        unit++;
    }
    char text[32];
    snprintf(text, sizeof(text), unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
    return text;
}

} // namespace

void say_list(const char *format, va_list args)
{
    clear_line();
    if (__fpending(stdout) != 0) {
        putchar('\n');
        fflush(stdout);
    }
    fputs("kelcat: ", stderr);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    fflush(stderr);
}

void say(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    say_list(format, args);
    va_end(args);
}

double now_seconds()
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

Progress::Progress(bool quiet, int output)
    : wanted(!quiet && isatty(STDERR_FILENO)), typed(isatty(STDIN_FILENO)), shown(isatty(output)), start(now_seconds()),
      next(start + 1)
{
    struct stat status;
    off_t offset = lseek(STDIN_FILENO, 0, SEEK_CUR);
    if (fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode) && offset >= 0 && offset < status.st_size) {
        input_size = (uint64_t)(status.st_size - offset);
    }
}

Progress::~Progress()
{
    clear_line();
    fflush(stderr);
}

void Progress::input(uint64_t bytes)
{
    input_bytes += bytes;
    wanted = wanted && !typed;
}

void Progress::sent(uint64_t bytes)
{
    sent_bytes += bytes;
}

void Progress::received(uint64_t bytes)
{
    received_bytes += bytes;
    wanted = wanted && !shown;
}

double Progress::due() const
{
    return wanted ? next : 0;
}

void Progress::show(double now)
{
    if (!wanted) {
        clear_line();
        return;
    }
    if (now < next) {
        return;
    }
    next = now + 0.25;

    std::string rate = amount((double)(sent_bytes + received_bytes) / (now - start));
    fprintf(stderr, "\rsent %s, received %s, %s/s", amount((double)sent_bytes).c_str(),
            amount((double)received_bytes).c_str(), rate.c_str());
    if (input_size != 0 && input_bytes != 0) {
        double part = input_bytes < input_size ? (double)input_bytes / (double)input_size : 1;
        long left = lround((now - start) * (1 - part) / part);
        fprintf(stderr, ", %.0f %%, %ld:%02ld left", part * 100, left / 60, left % 60);
    }
    fputs("\033[K", stderr);
    fflush(stderr);
    line_shown = true;
}

void Progress::total() const
{
    say("sent %" PRIu64 " bytes, received %" PRIu64 " bytes in %.3f s", sent_bytes, received_bytes,
        now_seconds() - start);
}
