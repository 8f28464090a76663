#include "frames.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

std::string frame_text(unsigned long number, const std::string &frame, bool outgoing, unsigned protocol)
{
    char piece[80];
    snprintf(piece, sizeof(piece), "# %lu: %zu bytes %s, protocol 0x%04x", number, frame.size(),
             outgoing ? "out" : "in", protocol);
    std::string text = piece;
    for (size_t i = 0; i < frame.size(); i++) {
        if (i % 16 == 0) {
            snprintf(piece, sizeof(piece), "\n%04zx ", i);
            text += piece;
        }
        snprintf(piece, sizeof(piece), " %02x", (unsigned)(unsigned char)frame[i]);
        text += piece;
    }
    return text + '\n';
}

bool FrameReader::take(const std::string &text, std::deque<std::string> *frames)
{
    for (char character : text) {
        if (character != '\n') {
            line += character;
        } else if (!take_line(frames)) {
            return false;
        }
    }
    return true;
}

bool FrameReader::finish(std::deque<std::string> *frames)
{
    if (!line.empty() && !take_line(frames)) {
        return false;
    }
    if (!frame.empty()) {
        frames->push_back(std::move(frame));
        frame.clear();
    }
    return true;
}

bool FrameReader::take_line(std::deque<std::string> *frames)
{
    std::string text;
    text.swap(line);
    line_number++;

    const char *rest = text.c_str() + strspn(text.c_str(), " \t\r");
    if (*rest == '\0' || *rest == '#') {
        return text.find('\0') == std::string::npos || refuse("holds a NUL");
    }

    char *end;
    unsigned long offset = strtoul(rest, &end, 16);
    if (!isxdigit((unsigned char)*rest) || end - rest < 3 || end - rest > 8 ||
        (*end != '\0' && !isspace((unsigned char)*end))) {
        return refuse("does not begin with an offset such as 0000");
    }
    if (offset == 0 && !frame.empty()) {
        frames->push_back(std::move(frame));
        frame.clear();
    }
    if (offset != frame.size()) {
        return refuse("has an offset that is neither 0 nor where the frame goes on");
    }

    for (rest = end + strspn(end, " \t\r"); *rest != '\0'; rest += strspn(rest, " \t\r")) {
        if (!isxdigit((unsigned char)rest[0]) || !isxdigit((unsigned char)rest[1]) ||
            (rest[2] != '\0' && !isspace((unsigned char)rest[2]))) {
            return refuse("holds something else than bytes of two hexadecimal digits");
        }
        const char digits[] = {rest[0], rest[1], '\0'};
        frame += (char)strtoul(digits, nullptr, 16);
        rest += 2;
    }
    return rest == text.c_str() + text.size() || refuse("holds a NUL");
}

bool FrameReader::refuse(const char *why)
{
    wrong = "line " + std::to_string(line_number) + " of standard input " + why;
    return false;
}
