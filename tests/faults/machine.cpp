#include "machine.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "calls.h"
#include "explorer.h"
#include "kel_lib.h"
#include "kel_module.h"
#include "positions.h"

namespace
{

constexpr const char *source_name = "platform/kel/socket/kel_socket.cpp"; /* as the reports carry it */
constexpr const char *red = "\033[1;31m";
constexpr const char *end_of_colour = "\033[m";

bool compare(long left, Condition::Kind kind, long right)
{
    switch (kind) {
    case Condition::Is:
        return left == right;
    case Condition::IsNot:
        return left != right;
    case Condition::IsBelow:
        return left < right;
    default:
        return left > right;
    }
}

/* ---- Fields of memory -------------------------------------------------------------------------------------------- */

unsigned char *place(long pointer, const FieldOf &which)
{
    return reinterpret_cast<unsigned char *>(pointer) + which.offset;
}

long load(long pointer, const FieldOf &which)
{
    const unsigned char *bytes = place(pointer, which);
    int word;
    switch (which.bytes) {
    case 0:
        return (long)bytes;
    case 1:
        return bytes[0];
    case 2:
        return which.network_order ? bytes[0] << 8 | bytes[1] : bytes[1] << 8 | bytes[0];
    case 4:
        memcpy(&word, bytes, sizeof(word));
        return word;
    default:
        memcpy(&pointer, bytes, sizeof(pointer));
        return pointer;
    }
}

void store(long pointer, const FieldOf &which, long value)
{
    unsigned char *bytes = place(pointer, which);
    for (int i = 0; i < which.bytes; i++) {
        const int shift = 8 * (which.network_order ? which.bytes - 1 - i : i);
        bytes[i] = (unsigned char)(value >> shift);
    }
}

} // namespace

/* ---- Values ------------------------------------------------------------------------------------------------------ */

long *Machine::memory(size_t bytes)
{
    constexpr long stale = 0x5a5a5a5a5a5a5a5a; /* nobody may rely on what lies there */
    memories.emplace_back((bytes + sizeof(stale) - 1) / sizeof(stale), stale);
    return memories.back().data();
}

long Machine::value(const Expression &expression, Frame &frame)
{
    const auto &of = expression.of;
    switch (expression.kind) {
    case Expression::Number:
        return expression.number;
    case Expression::Variable:
        return frame.variables[(size_t)expression.number];
    case Expression::Field:
        return load(value(of[0], frame), field(expression.number));
    case Expression::ElementOf: {
        const long element = value(of[1], frame) + value(of[0], frame) * expression.number;
        return expression.number == sizeof(char *) ? *reinterpret_cast<long *>(element)
                                                   : element; /* a text is one more away */
    }
    case Expression::AddressOf: {
        const long inside = value(of[0], frame);
        long *cell = memory(sizeof(inside));
        *cell = inside;
        return reinterpret_cast<long>(cell);
    }
    case Expression::List: {
        long *cells = memory(of.size() * sizeof(long));
        for (size_t i = 0; i < of.size(); i++) {
            cells[i] = value(of[i], frame);
        }
        return reinterpret_cast<long>(cells);
    }
    case Expression::Product:
        return value(of[0], frame) * value(of[1], frame);
    case Expression::Sum:
        return value(of[0], frame) + value(of[1], frame);
    case Expression::Call:
        break;
    }

    std::vector<long> arguments;
    for (const Expression &argument : of) {
        arguments.push_back(value(argument, frame));
    }
    if (expression.function == nullptr && expression.callee == nullptr) {
        expression.function = function_named(expression.name);
        expression.callee = system_function(expression.name);
    }
    if (expression.function != nullptr) {
        return call(*expression.function, arguments);
    }
    arguments.resize(expression.callee->parameters);
    return expression.callee->call(arguments.data());
}

bool Machine::holds(const Condition &condition, Frame &frame)
{
    const long left = value(condition.left, frame);
    const bool negated = condition.kind == Condition::IsNot;
    bool found = false;
    for (const Expression &right : condition.right) {
        found = found || compare(left, negated ? Condition::Is : condition.kind, value(right, frame));
    }
    return found != negated;
}

/* ---- Reports ----------------------------------------------------------------------------------------------------- */

/* Where the source makes this call or report. A use that the source has once may stand in several lines of the text. */
void Machine::look_up(const Statement &statement, const Frame &frame)
{
    if (statement.outcomes != nullptr) {
        return;
    }
    const Position *found = find_position(frame.function.name, statement.use, statement.nth);
    statement.line = found == nullptr ? 0 : found->line;
    const std::string name =
        found == nullptr ? position(frame.function.name, statement.use, statement.nth) : found->name;
    statement.outcomes = &taken_at[name];
}

void Machine::answered(size_t taken)
{
    if (current != nullptr) {
        current->outcomes->insert(taken);
    }
}

/* The one form of a report: two questions to the filter, the console, the log. */
void Machine::report(const Statement &statement, Frame &frame)
{
    look_up(statement, frame);
    const std::string function = frame.function.name;
    const std::string key = function + "." + std::to_string(statement.line);
    const long argument =
        statement.kind == Statement::Report && !statement.arguments.empty() ? value(statement.arguments[0], frame) : 0;

    if (kel_info_print_filter_is_filtered(2, key.c_str()) != 0) {
        statement.outcomes->insert(SuppressedByLine);
        return;
    }
    if (kel_info_print_filter_is_filtered(2, function.c_str()) != 0) {
        statement.outcomes->insert(SuppressedByName);
        return;
    }
    const std::string start = std::string(red) + "%s.%d:";
    if (statement.kind == Statement::Refuse) {
        printf((start + statement.format + end_of_colour).c_str(), function.c_str(), statement.line);
    } else {
        printf(start.c_str(), function.c_str(), statement.line);
        printf(statement.format.c_str(), argument);
        const std::string error = strerror(errno);
        printf(": %s", error.c_str());
        printf(end_of_colour);
    }
    statement.outcomes->insert(is_noisy() ? PrintedNoisily : Printed);
    KEL_SysLog(module_print_filter.moduleID, 2, source_name, statement.line, function.c_str(), statement.format.c_str(),
               argument);
}

/* ---- Steps ------------------------------------------------------------------------------------------------------- */

void Machine::step(const Statement &statement, Frame &frame)
{
    if (outcomes(statement.use) != 0) {
        look_up(statement, frame);
        current = &statement;
    }
    long result = value(statement.arguments[0], frame);
    current = nullptr;
    result = statement.narrow ? (int)result : result;
    if (statement.has_target) {
        frame.variables[(size_t)statement.target.number] = result;
    }
    for (const Branch &branch : statement.branches) {
        if (compare(result, branch.kind, branch.number)) {
            run(*branch.then, frame);
            return;
        }
    }
}

void Machine::run(const Statement &statement, Frame &frame)
{
    statement.runs++;
    switch (statement.kind) {
    case Statement::Call:
        step(statement, frame);
        break;
    case Statement::Assign: {
        const long assigned = value(statement.arguments[0], frame);
        if (statement.target.kind == Expression::Field) {
            store(value(statement.target.of[0], frame), field(statement.target.number), assigned);
        } else {
            frame.variables[(size_t)statement.target.number] = assigned;
        }
        break;
    }
    case Statement::Report:
        report(statement, frame);
        break;
    case Statement::Refuse:
        if (value(statement.target, frame) == 0) {
            statement.refusals++;
            last = &statement;
            report(statement, frame);
            frame.result = statement.result;
            frame.is_done = true;
        }
        break;
    case Statement::AssertionFails:
        look_up(statement, frame);
        statement.outcomes->insert(0);
        KEL_ASSERT_X(0, source_name, statement.line, 0);
        break;
    case Statement::Result:
        last = &statement;
        frame.result = value(statement.arguments[0], frame);
        frame.is_done = true;
        break;
    case Statement::If: {
        bool all = true;
        for (const Condition &condition : statement.conditions) {
            all = all && holds(condition, frame);
        }
        run(all ? statement.then : statement.otherwise, frame);
        break;
    }
    case Statement::Each: {
        const long end = value(statement.arguments[0], frame);
        long &counter = frame.variables[(size_t)statement.target.number];
        for (counter = 0; counter < end && !frame.is_done; counter++) {
            run(statement.then, frame);
        }
        break;
    }
    case Statement::Local:
        frame.variables[(size_t)statement.target.number] =
            reinterpret_cast<long>(memory((size_t)value(statement.arguments[0], frame)));
        break;
    }
    if (trace != nullptr) {
        origins.resize(trace->size(), &statement); /* those of deeper steps are there already */
    }
}

void Machine::run(const Block &block, Frame &frame)
{
    for (const Statement &statement : block) {
        if (frame.is_done) {
            return;
        }
        run(statement, frame);
    }
}

long Machine::call(const Function &function, const std::vector<long> &arguments)
{
    Frame frame{function, arguments, false, 0};
    frame.variables.resize(function.variables);
    for (size_t i = 0; i < function.parameters.size(); i++) {
        if (function.parameters[i].is_short) {
            frame.variables[i] = (short)frame.variables[i];
        }
    }
    run(function.steps, frame);
    return frame.result;
}

static const Function no_function;

long Machine::value(const Expression &expression)
{
    Frame frame{no_function, {}, false, 0};
    return value(expression, frame);
}

void Machine::prepare(const Block &block)
{
    Frame frame{no_function, {}, false, 0};
    run(block, frame);
}
