/* The progress line, and the closing line of -v. */
#ifndef KELCAT_PROGRESS_H
#define KELCAT_PROGRESS_H

#include <cstddef>
#include <cstdint>

/* Shown on a terminal, from the second second on, and not among what is typed and shown on the terminal itself. */
class Progress
{
  public:
    explicit Progress(bool quiet);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void input(uint64_t bytes); /* read from standard input */
    void sent(uint64_t bytes);
    void received(uint64_t bytes);

    double due() const; /* when to call show() next */
    void show(double now);
    void total() const;

  private:
    void hide_if(bool on_terminal);

    struct Moment {
        double time;
        uint64_t moved; /* sent and received */
        uint64_t input;
    };
    static const size_t moments = 21; /* with four in a second: those of the last five seconds */

    bool wanted;
    bool typed; /* standard input is a terminal */
    bool shown; /* standard output is one */
    double start;
    double next;
    uint64_t input_bytes = 0;
    uint64_t input_size = 0; /* 0: not known */
    uint64_t sent_bytes = 0;
    uint64_t received_bytes = 0;
    Moment past[moments];
    size_t count = 0;
};

#endif
