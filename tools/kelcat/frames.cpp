#include "frames.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "channel.h"

const char frame_format[] =
    "Frames are hexadecimal text both ways: '#' comments, then lines of an offset and up to 16 bytes,\n"
    "\"0010  08 00 45 ...\"; offset 0 begins the next frame. packet: receives, or sends with --send-only.\n"
    "It shows incoming frames; with -v, unless --raw, the machine's own too, marked \"out\".\n";

size_t frame_text(char *text, unsigned long number, const char *frame, size_t size, bool outgoing, unsigned protocol)
{
    static const char digits[] = "0123456789abcdef";
    char *end =
        text + sprintf(text, "# %lu: %zu bytes %s, protocol 0x%04x", number, size, outgoing ? "out" : "in", protocol);
    for (size_t i = 0; i < size; i++) {
        if (i % 16 == 0) {
            end += sprintf(end, "\n%04zx ", i);
        }
        const unsigned char byte = (unsigned char)frame[i];
        *end++ = ' ';
        *end++ = digits[byte >> 4];
        *end++ = digits[byte & 15];
    }
    *end++ = '\n';
    return (size_t)(end - text);
}

size_t FrameReader::take(const char *text, size_t size, std::string *complete)
{
    size_t used = 0;
    while (used < size && complete->empty() && wrong.empty()) {
        const char *start = text + used;
        const char *end = static_cast<const char *>(memchr(start, '\n', size - used));
        line.append(start, end != nullptr ? (size_t)(end - start) : size - used);
        used = end != nullptr ? (size_t)(end - text) + 1 : size;
        if (end != nullptr) {
            take_line(complete);
        }
    }
    return used;
}

void FrameReader::finish(std::string *complete)
{
    if (!line.empty()) {
        take_line(complete);
    }
    if (complete->empty() && wrong.empty()) {
        complete->swap(frame);
    }
}

bool FrameReader::take_line(std::string *complete)
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
        complete->swap(frame);
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
