#include "progress.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "channel.h"
#include "say.h"

static std::string amount(double bytes)
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

Progress::Progress(bool quiet)
    : wanted(!quiet && isatty(STDERR_FILENO)), typed(isatty(STDIN_FILENO)), shown(isatty(STDOUT_FILENO)),
      start(now_seconds()), next(start + 1)
{
    struct stat status;
    off_t offset = lseek(STDIN_FILENO, 0, SEEK_CUR);
    if (fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode) && offset >= 0 && offset < status.st_size) {
        input_size = (uint64_t)(status.st_size - offset);
    }
    past[0] = {start, 0, 0};
}

Progress::~Progress()
{
    show_line(nullptr);
}

/* Text of the user's own is on the terminal from now on. */
void Progress::hide_if(bool on_terminal)
{
    if (wanted && on_terminal) {
        wanted = false;
        show_line(nullptr);
    }
}

void Progress::input(uint64_t bytes)
{
    input_bytes += bytes;
    hide_if(typed);
}

void Progress::sent(uint64_t bytes)
{
    sent_bytes += bytes;
}

void Progress::received(uint64_t bytes)
{
    received_bytes += bytes;
    hide_if(shown);
}

double Progress::due() const
{
    return wanted ? next : never;
}

void Progress::show(double now)
{
    if (now < due()) {
        return;
    }
    next = now + 0.25;

    const Moment present = {now, sent_bytes + received_bytes, input_bytes};
    const Moment since = past[count + 1 < moments ? 0 : (count + 1) % moments];
    past[++count % moments] = present;
    const double seconds = now - since.time;

    std::string line = "sent " + amount((double)sent_bytes) + ", received " + amount((double)received_bytes) + ", " +
                       amount((double)(present.moved - since.moved) / seconds) + "/s";
    if (input_size != 0 && input_bytes != 0) {
        char text[64];
        const uint64_t rest = input_size - std::min(input_size, input_bytes);
        snprintf(text, sizeof(text), ", %.0f %%", 100 - 100 * (double)rest / (double)input_size);
        line += text;
        if (present.input != since.input) {
            const long left = lround((double)rest * seconds / (double)(present.input - since.input));
            snprintf(text, sizeof(text), ", %ld:%02ld left", left / 60, left % 60);
            line += text;
        }
    }
    show_line(line.c_str());
}

void Progress::total() const
{
    say("sent %" PRIu64 " bytes, received %" PRIu64 " bytes in %.3f s", sent_bytes, received_bytes,
        now_seconds() - start);
}
