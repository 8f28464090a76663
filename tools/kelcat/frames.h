/* Frames as hexadecimal text: what packet: prints when it receives, it reads when it sends. */
#ifndef KELCAT_FRAMES_H
#define KELCAT_FRAMES_H

#include <deque>
#include <string>

/* A comment line, then lines of an offset and 16 bytes. */
std::string frame_text(unsigned long number, const std::string &frame, bool outgoing, unsigned protocol);

class FrameReader
{
  public:
    /* Takes the next piece of text and appends every frame that it completes; false when a line is wrong. */
    bool take(const std::string &text, std::deque<std::string> *frames);

    /* The text has ended: so has the last frame. */
    bool finish(std::deque<std::string> *frames);

    /* What is wrong, with the number of the line. */
    const std::string &error() const
    {
        return wrong;
    }

  private:
    bool take_line(std::deque<std::string> *frames);
    bool refuse(const char *why);

    std::string line;
    unsigned long line_number = 0;
    std::string frame;
    std::string wrong;
};

#endif
