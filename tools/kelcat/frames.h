/* Frames as hexadecimal text: what packet: prints when it receives, it reads when it sends. */
#ifndef KELCAT_FRAMES_H
#define KELCAT_FRAMES_H

#include <string>

/* A comment line, then lines of an offset and 16 bytes; returns the length. A frame of 64 KiB makes less than 256 KiB.
 */
size_t frame_text(char *text, unsigned long number, const char *frame, size_t size, bool outgoing, unsigned protocol);

class FrameReader
{
  public:
    /* Takes text up to where it completes a frame, which it puts into the empty one, and returns how much. */
    size_t take(const char *text, size_t size, std::string *complete);

    /* The text has ended: so has the frame. To be called until it completes no more. */
    void finish(std::string *complete);

    /* What is wrong, with the number of the line; empty: nothing. */
    const std::string &error() const
    {
        return wrong;
    }

  private:
    bool take_line(std::string *complete);
    bool refuse(const char *why);

    std::string line;
    unsigned long line_number = 0;
    std::string frame;
    std::string wrong;
};

#endif
