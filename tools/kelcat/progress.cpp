#include "progress.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "say.h"

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

Progress::Progress(bool quiet, double now)
    : wanted(!quiet && isatty(STDERR_FILENO)), start(now), latest(now), next(now + 1)
{
    struct stat status;
    const off_t offset = lseek(STDIN_FILENO, 0, SEEK_CUR);
    if (fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode) && offset >= 0 && offset < status.st_size) {
        input_size = (uint64_t)(status.st_size - offset);
    }
}

Progress::~Progress()
{
    show_line(nullptr);
}

void Progress::moved(uint64_t from_input, uint64_t out, uint64_t in)
{
    read += from_input;
    sent += out;
    received += in;
    if (wanted && ((from_input != 0 && isatty(STDIN_FILENO)) || (in != 0 && isatty(STDOUT_FILENO)))) {
        wanted = false;
        show_line(nullptr);
    }
}

double Progress::due() const
{
    return wanted ? next : never;
}

/* Each look counts for a fifth: four in a second make it the rate of the last seconds. */
static void smooth(double *rate, double bytes, double seconds)
{
    *rate += (bytes / seconds - *rate) * (*rate == 0 ? 1 : 0.2);
}

void Progress::show(double now)
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

void Progress::total() const
{
    say("sent %" PRIu64 " bytes, received %" PRIu64 " bytes in %.3f s", sent, received, now_seconds() - start);
}
