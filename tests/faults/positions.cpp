#include "positions.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "answers.h"

namespace
{

/* The module's own declaration of unlink. */
const std::map<std::string, std::string> other_names = {{"__unlink_path", "unlink"}};

/* Words in front of a parenthesis that are no call of the system or the platform. */
const std::set<std::string> harmless = {
    "if", "for", "while", "switch", "return", "sizeof", "htons", "ntohs", "memset", "memcpy", "__builtin_mul_overflow"};

std::string read(const char *path)
{
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

/* Comments become blanks; line ends stay. The source has no character that is a quotation mark. */
std::string without_comments(std::string text)
{
    enum { Code, String, Line, Block } state = Code;
    for (size_t i = 0; i < text.size(); i++) {
        const std::string two = text.substr(i, 2);
        if (state == Code && (two == "//" || two == "/*")) {
            state = two == "//" ? Line : Block;
            text.replace(i, 2, "  ");
        } else if (state == Block && two == "*/") {
            state = Code;
            text.replace(i, 2, "  ");
        } else if (state == Line && text[i] == '\n') {
            state = Code;
        } else if ((state == Line || state == Block) && text[i] != '\n') {
            text[i] = ' ';
        } else if (state == String && text[i] == '\\') {
            i++;
        } else if (state != Block && text[i] == '"') {
            state = state == Code ? String : Code;
        }
    }
    return text;
}

bool in_word(char c)
{
    return isalnum((unsigned char)c) || c == '_';
}

/* The word in front of a place, such as an opening parenthesis. */
std::string word_before(const std::string &text, size_t place)
{
    size_t start = place;
    while (start > 0 && in_word(text[start - 1])) {
        start--;
    }
    return text.substr(start, place - start);
}

/* The place behind the parenthesis that closes the one at a place, or behind the string that begins there. */
size_t behind(const std::string &text, size_t place)
{
    if (text[place] == '"') {
        do {
            place += text[place] == '\\' ? 2 : 1;
        } while (text[place] != '"');
        return place + 1;
    }
    for (place++; text[place] != ')';) {
        place = text[place] == '(' || text[place] == '"' ? behind(text, place) : place + 1;
    }
    return place + 1;
}

struct Function {
    std::string name;
    std::string body;
    int first_line;
};

/* Definitions begin in the first column and have their braces alone on a line. */
std::vector<Function> functions()
{
    std::vector<Function> found;
    std::istringstream lines(without_comments(read(KEL_SOCKET_SOURCE)));
    std::string name;
    bool inside = false;
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        number++;
        if (line == "{" && !name.empty()) {
            found.push_back({name, "", number + 1});
            inside = true;
        } else if (line == "}") {
            inside = false;
            name.clear();
        } else if (inside) {
            found.back().body += line + "\n";
        } else if (!line.empty() && line.back() == ';') {
            name.clear();
        } else if (!line.empty() && in_word(line[0]) && line.find('(') != std::string::npos) {
            name = word_before(line, line.find('('));
        }
    }
    return found;
}

} // namespace

std::string position(const std::string &function, const std::string &use, int nth)
{
    return function + ": " + use + (nth > 1 ? " " + std::to_string(nth) : "");
}

bool is_report(const std::string &call)
{
    return call == "kel_perror" || call == "NULL_CHECK" || call == "NULL_CHECK_RP" || call == "KEL_ASSERT";
}

size_t outcomes(const std::string &call)
{
    if (is_report(call)) {
        return call == "KEL_ASSERT" ? 1 : reported_count; /* the assertion asks no filter */
    }
    return answers(call).size();
}

static Source read_source()
{
    const auto all = functions();
    std::set<std::string> own;
    for (const Function &function : all) {
        own.insert(function.name);
    }

    Source source;
    for (const auto &[function, body, first_line] : all) {
        std::map<std::string, int> uses;
        for (size_t i = 0; i < body.size(); i++) {
            if (body[i] == '"') {
                i = behind(body, i) - 1;
                continue;
            }
            const std::string word = body[i] == '(' ? word_before(body, i) : "";
            if (word.empty()) {
                continue;
            }
            auto renamed = other_names.find(word);
            const std::string call = renamed == other_names.end() ? word : renamed->second;
            if (outcomes(call) != 0) {
                const std::string use = is_report(call) ? call + body.substr(i, behind(body, i) - i) : call;
                const int line = first_line + (int)std::count(body.begin(), body.begin() + (long)i, '\n');
                source.positions.push_back({position(function, use, ++uses[use]), call, line});
            } else if (own.count(word) == 0 && harmless.count(word) == 0 && word.rfind("KEL_", 0) != 0) {
                source.unknown.push_back(function + ": " + word);
            }
        }
    }
    return source;
}

const Source &source()
{
    static const Source read = read_source();
    return read;
}

const Position *find_position(const std::string &function, const std::string &use, int nth)
{
    const Position *only = nullptr;
    for (const Position &candidate : source().positions) {
        if (candidate.name == position(function, use, nth)) {
            return &candidate;
        }
        only = candidate.name == position(function, use, 1) ? &candidate : only;
    }
    return only;
}

std::vector<std::string> exported()
{
    std::vector<std::string> names;
    std::istringstream lines(without_comments(read(KEL_SOCKET_MAP)));
    for (std::string line; std::getline(lines, line) && line != "local:";) {
        const size_t end = line.find(';');
        if (end != std::string::npos) {
            names.push_back(word_before(line, end));
        }
    }
    return names;
}
