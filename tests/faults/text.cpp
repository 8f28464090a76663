#include "text.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdio.h>
#include <stdlib.h>

#include "calls.h"
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

struct Line {
    size_t indent;
    std::string place;
    std::string text;
    std::vector<std::string> tokens;
};

/* ---- Lines and tokens -------------------------------------------------------------------------------------------- */

/* Words, numbers, "@name", texts with their quotation marks, and signs, each as it is written. */
std::vector<std::string> tokens(const std::string &text, const std::string &place)
{
    std::vector<std::string> found;
    auto in_word = [&](size_t i) { return i < text.size() && (isalnum((unsigned char)text[i]) || text[i] == '_'); };
    for (size_t start = 0, end; start < text.size() && text[start] != '#'; start = end) {
        end = start + 1;
        if (text[start] == '"') {
            end = text.find('"', end) + 1;
            if (end == 0) {
                give_up(place, "a text without an end");
            }
        } else if (text.compare(start, 2, "->") == 0) {
            end++;
        } else if (text[start] == '@' || text[start] == '-' || in_word(start)) {
            for (; in_word(end); end++) {
            }
        }
        if (text[start] != ' ') {
            found.push_back(text.substr(start, end - start));
        }
    }
    return found;
}

/* A line that ends with a sign that something has to follow goes on in the next one. */
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
            lines.back().tokens.insert(lines.back().tokens.end(), found.begin(), found.end());
        } else {
            lines.push_back({indent, place, text.substr(indent), found});
        }
        goes_on = found.back() == "where" || found.back().find_first_of(",|;") == 0;
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

/* Calls, whose names can be looked up when everything has been read. */
struct Called {
    std::string place;
    std::string name;
    size_t arguments;
};
std::vector<Called> &called()
{
    static std::vector<Called> all;
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
            start();
            if (now->indent != 0) {
                fail("a heading begins in the first column");
            }
            if (is("=", 1)) {
                const std::string name = word();
                need("=");
                names()[name] = expression().number;
                end();
            } else {
                function(all);
            }
        }
    }

  private:
    /* ---- Where the reader stands ---- */

    /* At the next line. */
    void start()
    {
        now = &lines[at++];
        token = 0;
    }
    /* Whether the next line is deeper than that. */
    bool is_deeper(size_t indent) const
    {
        return at < lines.size() && lines[at].indent > indent;
    }
    [[noreturn]]
    void fail(const std::string &why) const
    {
        give_up(now->place, why + ", in: " + now->text);
    }
    bool at_end() const
    {
        return token == now->tokens.size();
    }
    const std::string &next()
    {
        if (at_end()) {
            fail("something is missing at the end");
        }
        return now->tokens[token++];
    }
    bool is(const char *what, size_t ahead = 0) const
    {
        return token + ahead < now->tokens.size() && now->tokens[token + ahead] == what;
    }
    bool take(const char *what)
    {
        const bool found = is(what);
        token += found;
        return found;
    }
    void need(const char *what)
    {
        if (!take(what)) {
            fail(std::string("expected ") + what + " in place of " + next());
        }
    }
    void end()
    {
        if (!at_end()) {
            fail("what is " + next());
        }
    }
    static bool is_word(const std::string &what)
    {
        return isalpha((unsigned char)what[0]) || what[0] == '_';
    }
    std::string word()
    {
        const std::string found = next();
        if (!is_word(found)) {
            fail("expected a name in place of " + found);
        }
        return found;
    }
    long number()
    {
        const std::string found = next();
        char *behind;
        const long value = strtol(found.c_str(), &behind, 0);
        if (*behind != '\0') {
            fail("what is " + found);
        }
        return value;
    }
    /* A text without its quotation marks. */
    std::string text()
    {
        const std::string source = next();
        if (source[0] != '"') {
            fail("expected a text in place of " + source);
        }
        std::string found;
        for (size_t i = 1; i + 1 < source.size(); i++) {
            const bool escaped = source[i] == '\\';
            i += escaped;
            if (escaped && source[i] != 'r' && source[i] != 'n') {
                fail("unknown escape");
            }
            found += !escaped ? source[i] : source[i] == 'r' ? '\r' : '\n';
        }
        return found;
    }
    std::string written(size_t from) const
    {
        std::string all;
        for (size_t i = from; i < token; i++) {
            all += now->tokens[i];
        }
        return all;
    }

    /* ---- Expressions ---- */

    long variable(const std::string &name, bool is_new)
    {
        const long place = std::find(variables.begin(), variables.end(), name) - variables.begin();
        if (place == (long)variables.size()) {
            if (!is_new) {
                fail("unknown name " + name);
            }
            variables.push_back(name);
        }
        return place;
    }
    Expression new_variable()
    {
        return {Expression::Variable, variable(word(), true), "", {}};
    }

    static Expression constant(long value)
    {
        return {Expression::Number, value, "", {}};
    }

    std::vector<Expression> list(const char *closing)
    {
        std::vector<Expression> found;
        while (!take(closing)) {
            found.push_back(expression());
            if (!is(closing)) {
                need(",");
            }
        }
        return found;
    }

    Expression primary()
    {
        if (take("&")) {
            return {Expression::AddressOf, 0, "", {primary()}};
        }
        if (take("[")) {
            return {Expression::List, 0, "", list("]")};
        }
        if (take("(")) {
            Expression inner = expression();
            need(")");
            return inner;
        }
        const char first = at_end() ? '"' : now->tokens[token][0];
        if (first == '"') {
            return constant((long)kept(text()));
        }
        if (first == '@') {
            const std::string name = next();
            const void *memory = memory_of_caller(name.substr(1));
            if (memory == nullptr) {
                fail("the caller has no " + name);
            }
            return constant((long)memory);
        }
        if (first == '-' || isdigit((unsigned char)first)) {
            const long value = number();
            return constant(take("^") ? 1L << number() : value); /* powers of two */
        }
        const std::string name = word();
        if (is("of", 1)) { /* "record 1 of @pair" */
            Expression which = primary();
            need("of");
            const long size = name == "record" ? 112 : name == "text" ? 8 : 1;
            return {Expression::ElementOf, size, "", {which, primary()}};
        }
        if (take("(")) {
            Expression call{Expression::Call, 0, name, list(")")};
            called().push_back({now->place, name, call.of.size()});
            return call;
        }
        auto named = names().find(name);
        return named != names().end() ? constant(named->second)
                                      : Expression{Expression::Variable, variable(name, false), "", {}};
    }

    Expression part()
    {
        Expression value = primary();
        while (take(".")) {
            const std::string name = word();
            auto found =
                std::find_if(std::begin(fields), std::end(fields), [&](const FieldOf &f) { return f.name == name; });
            if (found == std::end(fields)) {
                fail("unknown field " + name);
            }
            value = {Expression::Field, found - std::begin(fields), "", {value}};
        }
        return value;
    }

    /* Products, and sums of them. */
    Expression expression(bool of_products = true)
    {
        Expression left = of_products ? expression(false) : part();
        while (take(of_products ? "+" : "*")) {
            const Expression right = of_products ? expression(false) : part();
            const bool known = left.kind == Expression::Number && right.kind == Expression::Number;
            left = !known ? Expression{of_products ? Expression::Sum : Expression::Product, 0, "", {left, right}}
                          : constant(of_products ? left.number + right.number : left.number * right.number);
        }
        return left;
    }

    std::vector<Condition> conditions()
    {
        std::vector<Condition> all;
        do {
            Condition one{Condition::Is, expression(), {}};
            need("is");
            one.kind = take("not")     ? Condition::IsNot
                       : take("below") ? Condition::IsBelow
                       : take("above") ? Condition::IsAbove
                                       : Condition::Is;
            do {
                one.right.push_back(expression());
            } while (take("or"));
            all.push_back(one);
        } while (take("and"));
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

    /* A statement that the source has, too: as it is written there, and which one of those that are written so. */
    void found_as(Statement &statement, const std::string &use)
    {
        statement.use = use;
        statement.nth = ++uses[use];
    }

    /* What stands behind a colon, or deeper in the lines below. */
    Block body()
    {
        if (at_end()) {
            return block(now->indent);
        }
        need(":");
        return in_line();
    }

    Block in_line()
    {
        Block block;
        do {
            block.push_back(simple());
        } while (take(";"));
        end();
        return block;
    }

    Statement simple()
    {
        if (take("report")) {
            Statement report = begin(Statement::Report);
            const size_t from = token;
            report.format = text();
            std::string use = "kel_perror(" + written(from);
            while (take(",")) {
                const size_t argument = token;
                report.arguments.push_back(expression());
                use += ", " + written(argument);
            }
            found_as(report, use + ")");
            return report;
        }
        if (take("assertion")) {
            need("fails");
            Statement assertion = begin(Statement::AssertionFails);
            found_as(assertion, "KEL_ASSERT(0)");
            return assertion;
        }
        if (take("result")) {
            Statement result = begin(Statement::Result);
            result.arguments.push_back(expression());
            return result;
        }
        if (take("local")) {
            Statement local = begin(Statement::Local);
            local.target = new_variable();
            need("of");
            local.arguments.push_back(expression());
            need("bytes");
            return local;
        }
        if (is("=", 1)) {
            variable(now->tokens[token], true);
        }
        const Expression first = expression();
        if (take("=")) {
            Statement assign = begin(Statement::Assign);
            assign.target = first;
            assign.arguments.push_back(expression());
            return assign;
        }
        if (first.kind != Expression::Call) {
            fail("this is no step");
        }
        Statement call = begin(Statement::Call);
        found_as(call, first.name);
        call.arguments = {first};
        if (take("->")) {
            call.has_target = true;
            call.target = new_variable();
            if (take("in")) {
                call.narrow = number() == 32;
                need("bits");
            }
        }
        return call;
    }

    Branch branch()
    {
        Branch one{Condition::Is, 0, nullptr};
        if (take("negative")) {
            one.kind = Condition::IsBelow;
        } else {
            if (take("not")) {
                one.kind = take("above") ? Condition::IsBelow : Condition::IsNot;
            }
            one.number = expression().number + (one.kind == Condition::IsBelow);
        }
        one.then = std::make_shared<Block>(body());
        return one;
    }

    Statement refusal()
    {
        Statement refuse = begin(Statement::Refuse);
        const std::string name = word();
        refuse.target = {Expression::Variable, variable(name, false), "", {}};
        need(":");
        need("refused");
        refuse.result = -1;
        if (take("with")) {
            need("null");
            refuse.result = 0;
        }
        end();
        refuse.format = name + " is null\r\n";
        found_as(refuse, (refuse.result == 0 ? "NULL_CHECK_RP(" : "NULL_CHECK(") + name + ")");
        return refuse;
    }

    Statement choice()
    {
        const size_t indent = now->indent;
        Statement choice = begin(Statement::If);
        choice.conditions = conditions();
        choice.then = body();
        if (at < lines.size() && lines[at].indent == indent && lines[at].tokens[0] == "else") {
            start();
            need("else");
            if (take("if")) {
                choice.otherwise.push_back(this->choice());
            } else {
                choice.otherwise = body();
            }
        }
        return choice;
    }

    Statement repetition()
    {
        need("each");
        Statement each = begin(Statement::Each);
        each.target = new_variable();
        need("below");
        each.arguments.push_back(expression());
        each.then = body();
        return each;
    }

    /* The statements of a line; what stands below it, deeper, follows the last one. */
    Block line()
    {
        if (take("null")) {
            return {refusal()};
        }
        if (take("if")) {
            return {choice()};
        }
        if (take("for")) {
            return {repetition()};
        }
        const size_t indent = now->indent;
        Block steps = in_line();
        while (is_deeper(indent)) {
            start();
            steps.back().branches.push_back(branch());
        }
        return steps;
    }

    /* The lines that are deeper than outside. */
    Block block(size_t outside)
    {
        Block found;
        const size_t indent = at < lines.size() ? lines[at].indent : 0;
        while (is_deeper(outside) && lines[at].tokens[0] != "tried") {
            start();
            if (now->indent != indent) {
                fail("neither a step nor what follows one");
            }
            const Block more = line();
            found.insert(found.end(), more.begin(), more.end());
        }
        return found;
    }

    /* Each of the trials once with each of the alternatives that stand here; add puts one into a trial. */
    template <typename Read, typename Add>
    void multiply(std::vector<Trial> &trials, const std::string &introduction, Read read, Add add)
    {
        std::vector<Trial> longer;
        do {
            const size_t from = token;
            const auto alternative = read();
            for (Trial one : trials) {
                add(one, alternative);
                one.text += introduction + written(from);
                longer.push_back(one);
            }
        } while (take("|"));
        trials = longer;
    }

    /* A line of trials: one for each way to choose among the alternatives of its arguments, and of what it sets. */
    std::vector<Trial> trials(size_t parameters)
    {
        need("tried");
        const Depth depth = take("briefly") ? Depth::Brief
                            : take("once")  ? Depth::Once
                            : take("in")    ? (need("pairs"), Depth::Pairs)
                                            : Depth::Every;
        std::vector<Trial> all = {{now->place, "tried", depth, {}, {}, {}}};
        auto value = [this] { return expression(); };
        for (const char *sign = "with"; take(sign); sign = ",") {
            multiply(all, *sign == ',' ? ", " : " with ", value,
                     [](Trial &one, const Expression &argument) { one.arguments.push_back(argument); });
        }
        if (all[0].arguments.size() != parameters) {
            fail(std::to_string(all[0].arguments.size()) + " arguments for " + std::to_string(parameters));
        }
        if (take("after")) {
            multiply(all, " after ", value, [](Trial &one, const Expression &call) { one.before.push_back(call); });
        }
        for (const char *sign = "where"; take(sign); sign = ";") {
            const std::string introduction = *sign == ';' ? "; " : " where ";
            const size_t from = token;
            Statement set = begin(Statement::Assign);
            set.target = expression();
            if (take("=")) { /* the alternatives are values */
                multiply(all, introduction + written(from), value, [&](Trial &one, const Expression &alternative) {
                    set.arguments = {alternative};
                    one.prepare.push_back(set);
                });
            } else {
                token = from;
                multiply(
                    all, introduction, [this] { return simple(); },
                    [](Trial &one, const Statement &step) { one.prepare.push_back(step); });
            }
        }
        end();
        return all;
    }

    void function(std::vector<Function> &all)
    {
        Function one;
        one.place = now->place;
        one.name = word();
        need("(");
        variables.clear();
        uses.clear();
        while (!take(")")) {
            const bool is_short = take("SHORT");
            variables.push_back(word());
            one.parameters.push_back({variables.back(), is_short});
            if (!is(")")) {
                need(",");
            }
        }
        end();
        one.steps = block(0);
        if (one.steps.empty() || one.steps.back().kind != Statement::Result) {
            fail(one.name + " does not end with a result");
        }
        one.variables = variables.size();
        variables.clear();
        while (is_deeper(0)) {
            start();
            const auto more = trials(one.parameters.size());
            one.trials.insert(one.trials.end(), more.begin(), more.end());
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

void give_up(const std::string &place, const std::string &why)
{
    fprintf(stderr, "%s: %s\n", place.c_str(), why.c_str());
    exit(1);
}

static std::vector<Function> read_all()
{
    std::vector<std::filesystem::path> paths;
    for (const auto &entry : std::filesystem::directory_iterator(KEL_BEHAVIOUR)) {
        if (entry.path().extension() == ".txt" && entry.path().stem() != "errno") {
            paths.push_back(entry.path());
        }
    }
    std::sort(paths.begin(), paths.end(), [](const auto &left, const auto &right) {
        const bool first = left.stem() == "names", second = right.stem() == "names";
        return first != second ? first : left < right;
    });
    std::vector<Function> all;
    for (const auto &path : paths) {
        Reader(lines_of(path)).read(all);
    }
    for (const Called &call : called()) {
        auto own = std::find_if(all.begin(), all.end(), [&](const Function &one) { return one.name == call.name; });
        const Callee *const other = system_function(call.name);
        if (own == all.end() && other == nullptr) {
            give_up(call.place, "no function has the name " + call.name);
        }
        if (own != all.end() ? call.arguments != own->parameters.size() : call.arguments > other->parameters) {
            give_up(call.place, "these are not the arguments of " + call.name);
        }
    }
    return all;
}

const std::vector<Function> &functions()
{
    static const auto all = read_all();
    return all;
}

const Function *function_named(const std::string &name)
{
    static const auto by_name = [] {
        std::map<std::string, const Function *> found;
        for (const Function &function : functions()) {
            if (!found.emplace(function.name, &function).second) {
                give_up(function.place, function.name + " stands here a second time");
            }
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
