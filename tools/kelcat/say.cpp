#include "say.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <unistd.h>

namespace
{

bool line_shown;

char *kept;
size_t kept_size;
FILE *reports;

} // namespace

void show_line(const char *text)
{
    if (text != nullptr) {
        fprintf(stderr, "\r%s\033[K", text);
    } else if (line_shown) {
        fputs("\r\033[K", stderr);
    }
    line_shown = text != nullptr;
    fflush(stderr);
}

void keep_reports()
{
    reports = open_memstream(&kept, &kept_size);
    if (reports != nullptr) {
        stdout = reports;
    }
}

/* A report begins with a colour and ends with the escape sequence that takes it away; it has no line end of its own. */
void show_reports()
{
    static const bool colour = isatty(STDERR_FILENO);
    if (reports == nullptr || ftell(reports) <= 0) {
        return;
    }
    fflush(reports);
    std::string text(kept, kept_size);
    fseek(reports, 0, SEEK_SET);

    std::string lines;
    for (size_t i = 0; i < text.size(); i++) {
        size_t sequence = text[i] == '\033' ? strcspn(&text[i], "m") + 1 : 0;
        if (sequence != 0) {
            lines += colour ? text.substr(i, sequence) : "";
            lines += sequence == strlen("\033[m") ? "\n" : "";
            i += sequence - 1;
        } else if (text[i] != '\r' && text[i] != '\n') {
            lines += text[i];
        }
    }
    show_line(nullptr);
    fputs(lines.c_str(), stderr);
    fflush(stderr);
}

void say_list(const char *format, va_list args)
{
    show_reports();
    show_line(nullptr);
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
