#include "recogniser.h"

#include <vector>

namespace
{

std::vector<std::string> split(const std::string &text, char separator)
{
    std::vector<std::string> parts(1);
    for (char character : text) {
        if (character == separator) {
            parts.emplace_back();
        } else {
            parts.back() += character;
        }
    }
    return parts;
}

bool is_made_of(const std::string &text, const char *characters, size_t most)
{
    return !text.empty() && text.size() <= most && text.find_first_not_of(characters) == std::string::npos;
}

bool is_dotted(const std::string &text, bool leading_zeros)
{
    const std::vector<std::string> fields = split(text, '.');
    for (const std::string &field : fields) {
        if (!is_made_of(field, "0123456789", 3) || std::stoi(field) > 255 ||
            (!leading_zeros && field.size() > 1 && field[0] == '0')) {
            return false;
        }
    }
    return fields.size() == 4;
}

// How many groups the text fills on one side of "::"; more than there can be when it is no such text.
size_t count_groups(const std::string &text, bool may_end_dotted)
{
    const size_t none = 100;
    if (text.empty()) {
        return 0;
    }
    const std::vector<std::string> groups = split(text, ':');
    size_t count = groups.size();
    for (const std::string &group : groups) {
        if (may_end_dotted && &group == &groups.back() && is_dotted(group, false)) {
            count++;
        } else if (!is_made_of(group, "0123456789abcdefABCDEF", 4)) {
            return none;
        }
    }
    return count;
}

} // namespace

bool is_ipv4_text(const std::string &text)
{
    return is_dotted(text, true);
}

bool is_ipv6_text(const std::string &text)
{
    const size_t gap = text.find("::");
    if (gap == std::string::npos) {
        return count_groups(text, true) == 8;
    }
    return text != "::" && count_groups(text.substr(0, gap), false) + count_groups(text.substr(gap + 2), true) <= 7;
}
