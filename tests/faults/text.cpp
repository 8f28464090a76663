#include "text.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kel_prv_socket.h"

namespace
{

const FieldOf fields[] = {{"family", 0, 2, false},
                          {"port", 2, 2, true},
                          {"protocol", 2, 2, true},
                          {"path", 2, 0, false},
                          {"interface", 4, 4, false},
                          {"ipv4_address", 4, 0, false},
                          {"ipv6_address", 8, 0, false},
                          {"halen", 11, 1, false},
                          {"mac", 12, 0, false},
                          {"scope", 24, 4, false},
                          {"int", 0, 4, false},
                          {"pointer", 0, 8, false},
                          {"byte", 0, 1, false},
                          /* of an interface query */
                          {"answered_index", 16, 4, false},
                          {"answered_mac", 18, 0, false}};

struct Token {
    enum Kind { Word, Memory, Number, Text, Sign } kind;
    std::string text; /* a text with its escapes replaced */
    std::string source;
    long number = 0;
};

struct Line {
    size_t indent;
    std::string place;
    std::string text;
    std::vector<Token> tokens;
};

[[noreturn]]
void give_up(const std::string &place, const std::string &why)
{
    fprintf(stderr, "%s: %s\n", place.c_str(), why.c_str());
    exit(1);
}

/* ---- Lines and tokens -------------------------------------------------------------------------------------------- */

std::string unescaped(const std::string &source, const std::string &place)
{
    std::string text;
    for (size_t i = 0; i < source.size(); i++) {
        if (source[i] != '\\') {
            text += source[i];
            continue;
        }
        switch (source[++i]) {
        case 'r':
            text += '\r';
            break;
        case 'n':
            text += '\n';
            break;
        case '0':
            text += '\0';
            break;
        case '\\':
            text += '\\';
            break;
        default:
            give_up(place, "unknown escape in \"" + source + '"');
        }
    }
    return text;
}

std::vector<Token> tokens(const std::string &text, const std::string &place)
{
    std::vector<Token> found;
    auto in_word = [](char c) { return isalnum((unsigned char)c) || c == '_'; };
    for (size_t i = 0; i < text.size() && text[i] != '#';) {
        const size_t start = i;
        if (text[i] == ' ') {
            i++;
        } else if (text[i] == '"') {
            i = text.find('"', i + 1);
            if (i == std::string::npos) {
                give_up(place, "a text without an end");
            }
            const std::string source = text.substr(start + 1, i++ - start - 1);
            found.push_back({Token::Text, unescaped(source, place), source});
        } else if (isdigit((unsigned char)text[i]) || (text[i] == '-' && isdigit((unsigned char)text[i + 1]))) {
            char *end;
            const long number = strtol(text.c_str() + i, &end, 0);
            i = (size_t)(end - text.c_str());
            found.push_back({Token::Number, "", text.substr(start, i - start), number});
        } else if (text[i] == '@' || in_word(text[i])) {
            for (i++; i < text.size() && in_word(text[i]); i++) {
            }
            const bool memory = text[start] == '@';
            const std::string word = text.substr(start + memory, i - start - memory);
            found.push_back({memory ? Token::Memory : Token::Word, word, word});
        } else {
            i += text.compare(i, 2, "->") == 0 ? 2 : 1;
            found.push_back({Token::Sign, text.substr(start, i - start), ""});
        }
    }
    return found;
}

/* A line that ends with a comma goes on in the next one. */
std::vector<Line> lines_of(const std::filesystem::path &path)
{
    std::vector<Line> lines;
    std::ifstream file(path);
    int number = 0;
    bool goes_on = false;
    for (std::string text; std::getline(file, text);) {
        const std::string place = "tests/behaviour/" + path.filename().string() + ":" + std::to_string(++number);
        const auto found = tokens(text, place);
        if (found.empty()) {
            continue;
        }
        const size_t indent = text.find_first_not_of(' ');
        if (goes_on) {
            lines.back().text += " " + text.substr(indent);
            std::copy(found.begin(), found.end(), std::back_inserter(lines.back().tokens));
        } else {
            lines.push_back({indent, place, text.substr(indent), found});
        }
        goes_on = found.back().kind == Token::Sign && found.back().text == ",";
    }
    return lines;
}

/* ---- From tokens to statements ----------------------------------------------------------------------------------- */

/* Texts live as long as the program: the module gets pointers to them. */
const char *kept(const std::string &text)
{
    static std::set<std::string> all;
    return all.insert(text).first->c_str();
}

/* Names of numbers; the patterns have them from the module. */
std::map<std::string, long> &names()
{
    static std::map<std::string, long> all = {{"PATTERN_IPV4", (long)PATTERN_IPV4},
                                              {"PATTERN_IPV6", (long)PATTERN_IPV6}};
    return all;
}

class Reader
{
  public:
    explicit Reader(std::vector<Line> all) : lines(std::move(all))
    {
    }

    void read(std::vector<Function> &all)
    {
        while (at < lines.size()) {
            start(lines[at]);
            if (line().indent != 0) {
                fail("a heading begins in the first column");
            }
            if (tokens_left() > 1 && is_sign(1, "=")) {
                const std::string name = word();
                sign("=");
                names()[name] = expression().number;
                end();
                at++;
            } else {
                function(all);
            }
        }
    }

  private:
    /* Where the reader stands. */
    const Line &line() const
    {
        return *now;
    }
    void start(const Line &which)
    {
        now = &which;
        token = 0;
    }
    size_t tokens_left() const
    {
        return now->tokens.size() - token;
    }
    [[noreturn]]
    void fail(const std::string &why) const
    {
        give_up(now->place, why + ", in: " + now->text);
    }
    bool is_sign(size_t ahead, const char *text) const
    {
        return tokens_left() > ahead && now->tokens[token + ahead].kind == Token::Sign &&
               now->tokens[token + ahead].text == text;
    }
    bool is_word(const char *text) const
    {
        return tokens_left() > 0 && now->tokens[token].kind == Token::Word && now->tokens[token].text == text;
    }
    bool take_sign(const char *text)
    {
        const bool found = is_sign(0, text);
        token += found;
        return found;
    }
    bool take_word(const char *text)
    {
        const bool found = is_word(text);
        token += found;
        return found;
    }
    void sign(const char *text)
    {
        if (!take_sign(text)) {
            fail(std::string("expected ") + text);
        }
    }
    void need(const char *text)
    {
        if (!take_word(text)) {
            fail(std::string("expected ") + text);
        }
    }
    Token next(Token::Kind kind)
    {
        if (tokens_left() == 0 || now->tokens[token].kind != kind) {
            fail("this cannot be read from word " + std::to_string(token + 1));
        }
        return now->tokens[token++];
    }
    std::string word()
    {
        return next(Token::Word).text;
    }
    void end()
    {
        if (tokens_left() != 0) {
            fail("this cannot be read from word " + std::to_string(token + 1));
        }
    }

    /* ---- Expressions ---- */

    long variable(const std::string &name)
    {
        auto found = std::find(variables.begin(), variables.end(), name);
        if (found == variables.end()) {
            fail("unknown name " + name);
        }
        return found - variables.begin();
    }

    long declare(const std::string &name)
    {
        auto found = std::find(variables.begin(), variables.end(), name);
        if (found == variables.end()) {
            variables.push_back(name);
            return (long)variables.size() - 1;
        }
        return found - variables.begin();
    }

    static Expression number(long value)
    {
        return {Expression::Number, value, "", "", {}};
    }

    std::vector<Expression> list(const char *closing)
    {
        std::vector<Expression> found;
        while (!take_sign(closing)) {
            found.push_back(expression());
            if (!is_sign(0, closing)) {
                sign(",");
            }
        }
        return found;
    }

    Expression primary()
    {
        if (tokens_left() == 0) {
            fail("something is missing at the end");
        }
        const Token first = now->tokens[token++];
        switch (first.kind) {
        case Token::Number:
            if (take_sign("^")) {
                return number(1L << next(Token::Number).number);
            }
            return number(first.number);
        case Token::Text: {
            Expression text = number((long)kept(first.text));
            text.name = first.text;
            text.source = first.source;
            return text;
        }
        case Token::Memory:
            return {Expression::Caller, 0, first.text, first.text, {}};
        case Token::Sign:
            if (first.text == "&") {
                return {Expression::AddressOf, 0, "", "", {primary()}};
            }
            if (first.text == "[") {
                return {Expression::List, 0, "", "", list("]")};
            }
            if (first.text == "(") {
                Expression inner = expression();
                sign(")");
                return inner;
            }
            fail("unexpected " + first.text);
        case Token::Word:
            break;
        }
        const bool names_one = tokens_left() > 1 && now->tokens[token + 1].kind == Token::Word &&
                               now->tokens[token + 1].text == "of"; /* "record 1 of @pair" */
        if (names_one && (first.text == "record" || first.text == "text" || first.text == "byte")) {
            Expression which = primary();
            need("of");
            const long size = first.text == "record" ? 112 : first.text == "text" ? 8 : 1;
            return {Expression::ElementOf, size, "", "", {which, primary()}};
        }
        if (take_sign("(")) {
            return {Expression::Call, 0, first.text, "", list(")")};
        }
        auto named = names().find(first.text);
        if (named != names().end()) {
            Expression value = number(named->second);
            value.source = first.text;
            return value;
        }
        return {Expression::Variable, variable(first.text), first.text, first.text, {}};
    }

    Expression part()
    {
        Expression value = primary();
        while (take_sign(".")) {
            const std::string name = word();
            auto found =
                std::find_if(std::begin(fields), std::end(fields), [&](const FieldOf &f) { return f.name == name; });
            if (found == std::end(fields)) {
                fail("unknown field " + name);
            }
            value = {Expression::Field, found - std::begin(fields), "", "", {value}};
        }
        return value;
    }

    /* Products, and sums of them. */
    Expression expression(bool of_products = true)
    {
        const char *const operation = of_products ? "+" : "*";
        Expression left = of_products ? expression(false) : part();
        while (take_sign(operation)) {
            const Expression right = of_products ? expression(false) : part();
            const bool known = left.kind == Expression::Number && right.kind == Expression::Number;
            left = !known ? Expression{of_products ? Expression::Sum : Expression::Product, 0, "", "", {left, right}}
                   : of_products ? number(left.number + right.number)
                                 : number(left.number * right.number);
        }
        return left;
    }

    std::vector<Condition> conditions()
    {
        std::vector<Condition> all;
        do {
            Condition one{Condition::Is, expression(), {}};
            need("is");
            one.kind = take_word("not")     ? Condition::IsNot
                       : take_word("below") ? Condition::IsBelow
                       : take_word("above") ? Condition::IsAbove
                                            : Condition::Is;
            do {
                one.right.push_back(expression());
            } while (take_word("or"));
            all.push_back(one);
        } while (take_word("and"));
        return all;
    }

    /* ---- Statements ---- */

    Statement begin(Statement::Kind kind) const
    {
        Statement statement;
        statement.kind = kind;
        statement.place = now->place;
        statement.text = now->text;
        return statement;
    }

    /* What stands behind a colon, or deeper in the lines below. */
    Block body()
    {
        if (tokens_left() != 0) {
            sign(":");
            Block block = in_line();
            at++;
            return block;
        }
        const size_t outside = line().indent;
        at++;
        return block(outside);
    }

    Block in_line()
    {
        Block block;
        do {
            block.push_back(simple());
        } while (take_sign(";"));
        end();
        return block;
    }

    Statement simple()
    {
        if (take_word("report")) {
            Statement report = begin(Statement::Report);
            const Token text = next(Token::Text);
            report.format = text.text;
            report.use = "kel_perror(\"" + text.source + '"';
            while (take_sign(",")) {
                report.arguments.push_back(expression());
                report.use += ", " + report.arguments.back().source;
            }
            report.use += ")";
            report.nth = ++uses[report.use];
            return report;
        }
        if (take_word("assertion")) {
            need("fails");
            Statement assertion = begin(Statement::AssertionFails);
            assertion.use = "KEL_ASSERT(0)";
            assertion.nth = ++uses[assertion.use];
            return assertion;
        }
        if (take_word("result")) {
            Statement result = begin(Statement::Result);
            result.arguments.push_back(expression());
            return result;
        }
        if (take_word("local")) {
            Statement local = begin(Statement::Local);
            local.target = {Expression::Variable, declare(word()), "", "", {}};
            need("of");
            local.arguments.push_back(expression());
            need("bytes");
            return local;
        }
        if (tokens_left() > 1 && is_sign(1, "=") && now->tokens[token].kind == Token::Word) {
            declare(now->tokens[token].text);
        }
        const Expression first = expression();
        if (take_sign("=")) {
            Statement assign = begin(Statement::Assign);
            assign.target = first;
            assign.arguments.push_back(expression());
            return assign;
        }
        if (first.kind != Expression::Call) {
            fail("this is no step");
        }
        Statement call = begin(Statement::Call);
        call.use = first.name;
        call.arguments = first.of;
        call.nth = ++uses[call.use];
        if (take_sign("->")) {
            call.has_target = true;
            call.target = {Expression::Variable, declare(word()), "", "", {}};
            if (take_word("in")) {
                call.narrow = next(Token::Number).number == 32;
                need("bits");
            }
        }
        return call;
    }

    Branch branch()
    {
        Branch one{Condition::Is, 0, nullptr};
        if (take_word("negative")) {
            one.kind = Condition::IsBelow;
        } else if (take_word("null")) {
        } else {
            if (take_word("not")) {
                one.kind = take_word("above") ? Condition::IsBelow : Condition::IsNot;
            }
            one.number = next(Token::Number).number + (one.kind == Condition::IsBelow);
        }
        one.then = std::make_shared<Block>(body());
        return one;
    }

    Statement statement(Block &before)
    {
        const size_t indent = now->indent;
        if (is_word("null")) {
            token++;
            Statement refuse = begin(Statement::Refuse);
            refuse.target = primary();
            sign(":");
            need("refused");
            const bool pointer = take_word("with");
            if (pointer) {
                need("null");
            }
            refuse.format = refuse.target.source + " is null\r\n";
            refuse.use = std::string(pointer ? "NULL_CHECK_RP(" : "NULL_CHECK(") + refuse.target.source + ")";
            refuse.result = pointer ? 0 : -1;
            refuse.nth = ++uses[refuse.use];
            end();
            at++;
            return refuse;
        }
        if (take_word("if")) {
            Statement choice = begin(Statement::If);
            choice.conditions = conditions();
            choice.then = body();
            if (at < lines.size() && lines[at].indent == indent && lines[at].tokens[0].text == "else") {
                start(lines[at]);
                token++;
                if (is_word("if")) {
                    choice.otherwise.push_back(statement(choice.otherwise));
                } else {
                    choice.otherwise = body();
                }
            }
            return choice;
        }
        if (take_word("for")) {
            need("each");
            Statement each = begin(Statement::Each);
            each.target = {Expression::Variable, declare(word()), "", "", {}};
            need("below");
            each.arguments.push_back(expression());
            each.then = body();
            return each;
        }
        Block steps = in_line();
        at++;
        Statement last = std::move(steps.back());
        steps.pop_back();
        std::move(steps.begin(), steps.end(), std::back_inserter(before));
        while (at < lines.size() && lines[at].indent > indent) {
            start(lines[at]);
            last.branches.push_back(branch());
        }
        return last;
    }

    /* The lines that are deeper than outside. */
    Block block(size_t outside)
    {
        Block found;
        const size_t indent = at < lines.size() ? lines[at].indent : 0;
        while (at < lines.size() && lines[at].indent > outside) {
            start(lines[at]);
            if (line().indent != indent) {
                fail("neither a step nor what follows one");
            }
            if (is_word("tried")) {
                break;
            }
            Statement one = statement(found);
            found.push_back(std::move(one));
        }
        return found;
    }

    /* A line of trials: one for each way to choose among the alternatives of its arguments. */
    std::vector<Trial> trials()
    {
        std::vector<Trial> all(1);
        all[0].place = now->place;
        all[0].text = now->text;
        need("tried");
        all[0].depth = take_word("briefly") ? Depth::Brief
                       : take_word("once")  ? Depth::Once
                       : take_word("in")    ? (need("pairs"), Depth::Pairs)
                                            : Depth::Every;
        if (take_word("with")) {
            do {
                std::vector<Trial> longer;
                do {
                    const Expression argument = expression();
                    for (Trial one : all) {
                        one.arguments.push_back(argument);
                        longer.push_back(one);
                    }
                } while (take_sign("|"));
                all = longer;
            } while (take_sign(","));
        }
        Trial rest;
        if (take_word("after")) {
            rest.before.push_back(expression());
        }
        if (take_word("where")) {
            rest.prepare = in_line();
        }
        end();
        at++;
        for (Trial &one : all) {
            one.before = rest.before;
            one.prepare = rest.prepare;
        }
        return all;
    }

    void function(std::vector<Function> &all)
    {
        Function one;
        one.place = now->place;
        one.name = word();
        sign("(");
        variables.clear();
        uses.clear();
        while (!take_sign(")")) {
            const bool is_short = take_word("SHORT");
            one.parameters.push_back({word(), is_short});
            variables.push_back(one.parameters.back().name);
            if (!is_sign(0, ")")) {
                sign(",");
            }
        }
        end();
        at++;
        one.steps = block(0);
        one.variables = variables.size();
        variables.clear();
        while (at < lines.size() && lines[at].indent > 0) {
            start(lines[at]);
            const auto more = trials();
            std::copy(more.begin(), more.end(), std::back_inserter(one.trials));
        }
        all.push_back(std::move(one));
    }

    const std::vector<Line> lines;
    size_t at = 0; /* the line that comes next */
    const Line *now = nullptr;
    size_t token = 0;
    std::vector<std::string> variables;
    std::map<std::string, int> uses;
};

void gather(const Block &block, std::vector<const Statement *> &all)
{
    for (const Statement &statement : block) {
        all.push_back(&statement);
        for (const Branch &branch : statement.branches) {
            gather(*branch.then, all);
        }
        gather(statement.then, all);
        gather(statement.otherwise, all);
    }
}

} // namespace

const std::vector<Function> &functions()
{
    static const auto all = [] {
        std::vector<std::filesystem::path> paths;
        for (const auto &entry : std::filesystem::directory_iterator(KEL_BEHAVIOUR)) {
            paths.push_back(entry.path());
        }
        std::sort(paths.begin(), paths.end(), [](const auto &left, const auto &right) {
            const bool first = left.stem() == "names", second = right.stem() == "names";
            return first != second ? first : left < right;
        });
        std::vector<Function> found;
        for (const auto &path : paths) {
            if (path.extension() == ".txt" && path.stem() != "errno") {
                Reader(lines_of(path)).read(found);
            }
        }
        return found;
    }();
    return all;
}

const Function *function_named(const std::string &name)
{
    static const auto by_name = [] {
        std::map<std::string, const Function *> found;
        for (const Function &function : functions()) {
            found[function.name] = &function;
        }
        return found;
    }();
    auto found = by_name.find(name);
    return found == by_name.end() ? nullptr : found->second;
}

std::vector<const Statement *> statements()
{
    std::vector<const Statement *> all;
    for (const Function &function : functions()) {
        gather(function.steps, all);
    }
    return all;
}

const FieldOf &field(long number)
{
    return fields[number];
}
