/* The progress line, and the closing line of -v. */
#ifndef KELCAT_PROGRESS_H
#define KELCAT_PROGRESS_H

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "say.h"

/* Shown on a terminal, from the second second on, and not among what is typed and shown on the terminal itself. */
class Progress
{
  public:
    Progress(bool quiet, double now) : wanted(!quiet && isatty(STDERR_FILENO)), start(now), latest(now), next(now + 1)
    {
        struct stat status;
        const off_t offset = lseek(STDIN_FILENO, 0, SEEK_CUR);
        if (fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode) && offset >= 0 && offset < status.st_size) {
            input_size = (uint64_t)(status.st_size - offset);
        }
    }

    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;
    ~Progress()
    {
        show_line(nullptr);
    }

    void moved(uint64_t from_input, uint64_t out, uint64_t in)
    {
        read += from_input;
        sent += out;
        received += in;
        if (wanted && ((from_input != 0 && isatty(STDIN_FILENO)) || (in != 0 && isatty(STDOUT_FILENO)))) {
            wanted = false;
            show_line(nullptr);
        }
    }

    /* When to call show() next. */
    double due() const
    {
        return wanted ? next : never;
    }

    void show(double now)
    {
        if (now < due()) {
            return;
        }
        smooth(&rate, (double)(sent + received - latest_moved), now - latest);
        smooth(&read_rate, (double)(read - latest_read), now - latest);
        latest = now;
        latest_read = read;
        latest_moved = sent + received;
        next = now + 0.25;

        std::string line =
            "sent " + amount((double)sent) + ", received " + amount((double)received) + ", " + amount(rate) + "/s";
        if (input_size != 0 && read != 0) {
            const double rest = (double)(input_size - std::min(input_size, read));
            char text[64];
            snprintf(text, sizeof(text), ", %.0f %%", 100 - 100 * rest / (double)input_size);
            line += text;
            if (read_rate >= 1) {
                const long left = lround(rest / read_rate);
                snprintf(text, sizeof(text), ", %ld:%02ld left", left / 60, left % 60);
                line += text;
            }
        }
        show_line(line.c_str());
    }

    void total() const
    {
        say("sent %" PRIu64 " bytes, received %" PRIu64 " bytes in %.3f s", sent, received, now_seconds() - start);
    }

  private:
    static std::string amount(double bytes)
    {
        static const char *const units[] = {"B", "KiB", "MiB", "GiB", "TiB"};
        size_t unit = 0;
        for (; bytes >= 1024 && unit < 4; unit++) {
            bytes /= 1024;
        }
        char text[32];
        snprintf(text, sizeof(text), unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
        return text;
    }

    /* Each look counts for a fifth: four in a second make it the rate of the last seconds. */
    static void smooth(double *rate, double bytes, double seconds)
    {
        *rate += (bytes / seconds - *rate) * (*rate == 0 ? 1 : 0.2);
    }

    bool wanted;
    double start;
    double latest; /* show() */
    double next;
    uint64_t input_size = 0; /* 0: not known */
    uint64_t read = 0;
    uint64_t sent = 0;
    uint64_t received = 0;
    uint64_t latest_read = 0;
    uint64_t latest_moved = 0;
    double rate = 0; /* bytes a second, of the last seconds */
    double read_rate = 0;
};

#endif
