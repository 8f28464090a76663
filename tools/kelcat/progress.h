/* What kelcat tells on standard error: sentences, and a progress line that is rewritten in place. */
#ifndef KELCAT_PROGRESS_H
#define KELCAT_PROGRESS_H

#include <cstdarg>
#include <cstdint>

/*
 * One sentence behind "kelcat: ", and a line end. A progress line makes room for it, and what the module has reported
 * by then, without a line end of its own, stands in front of it.
 */
void say(const char *format, ...) __attribute__((format(printf, 1, 2)));
void say_list(const char *format, va_list args) __attribute__((format(printf, 1, 0)));

/* Seconds of a clock that nobody sets. */
double now_seconds();

/* Shown on a terminal, from the second second on, and not among what is typed and shown on the terminal itself. */
class Progress
{
  public:
    Progress(bool quiet, int output);
    ~Progress();

    void input(uint64_t bytes); /* read from standard input */
    void sent(uint64_t bytes);
    void received(uint64_t bytes);

    double due() const; /* when to call show() next; 0: never */
    void show(double now);
    void total() const; /* the closing line of -v */

  private:
    bool wanted;
    bool typed; /* standard input is a terminal */
    bool shown; /* standard output is one */
    double start;
    double next;
    uint64_t input_bytes = 0;
    uint64_t input_size = 0; /* 0: not known */
    uint64_t sent_bytes = 0;
    uint64_t received_bytes = 0;
};

#endif
