/* The progress line, and the closing line of -v. */
#ifndef KELCAT_PROGRESS_H
#define KELCAT_PROGRESS_H

#include <cstdint>

/* Shown on a terminal, from the second second on, and not among what is typed and shown on the terminal itself. */
class Progress
{
  public:
    Progress(bool quiet, double now);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void moved(uint64_t from_input, uint64_t out, uint64_t in);
    double due() const; /* when to call show() next */
    void show(double now);
    void total() const;

  private:
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
