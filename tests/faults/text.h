/*
 * The behaviour of every function as text (tests/behaviour), read into statements. The form is that of the files
 * themselves; what a statement does is the machine's.
 */
#ifndef TESTS_FAULTS_TEXT_H
#define TESTS_FAULTS_TEXT_H

#include <memory>
#include <set>
#include <string>
#include <vector>

struct Function;
struct Callee;

/* A value is a number of 64 bits: what C has in one register. Texts, records and arrays are pointers. */
struct Expression {
    enum Kind { Number, Variable, Field, ElementOf, AddressOf, List, Product, Sum, Call } kind;
    long number = 0;  /* a value, a variable's place in its function, the size of an element, a field's number */
    std::string name; /* of a function */
    std::vector<Expression> of;

    /* Of a call that was made before: one of the two. */
    mutable const Function *function = nullptr;
    mutable const Callee *callee = nullptr;
};

struct Condition {
    enum Kind { Is, IsNot, IsBelow, IsAbove } kind;
    Expression left;
    std::vector<Expression> right; /* alternatives */
};

struct Statement;
using Block = std::vector<Statement>;

/* What follows a step that came back with such a result. */
struct Branch {
    Condition::Kind kind;
    long number;
    std::shared_ptr<Block> then;
};

struct Statement {
    enum Kind { Call, Assign, Report, Refuse, AssertionFails, Result, If, Each, Local } kind;
    std::string place; /* file and line */
    std::string text;  /* as it is written */
    std::string use;   /* of a report: the macro as the source has it */
    std::string format;
    int nth = 0;       /* of the uses of this macro, or of this call, in its function: as in the source */
    Expression target; /* of an assignment; a variable that gets a result, is counted up, or is local memory */
    bool has_target = false;
    bool narrow = false; /* a result of 32 bits */
    std::vector<Expression> arguments;
    std::vector<Branch> branches;
    std::vector<Condition> conditions; /* all of them */
    Block then, otherwise;

    long result = 0; /* of a refusal */

    /* What the machine has looked up, and how often it came here. */
    mutable int line = 0;
    mutable std::set<size_t> *outcomes = nullptr;
    mutable size_t runs = 0, refusals = 0;
};

/* How far a call is explored. */
enum class Depth {
    Every, /* every answer of every call, in every combination */
    Pairs, /* for long sequences: every answer of every call, and few for one more; none more behind another errno */
    Brief, /* for an argument that changes little: few answers for each call, every path */
    Once   /* for an argument that changes no path: everything goes as usual */
};

/* A call that the explorer makes, behind what prepares the caller's memory, and behind another call. */
struct Trial {
    std::string place;
    std::string text; /* with the alternatives that were chosen */
    Depth depth;
    std::vector<Expression> arguments;
    Block prepare;
    std::vector<Expression> before; /* none or one */
};

struct Parameter {
    std::string name;
    bool is_short;
};

struct Function {
    std::string name;
    std::string place;
    std::vector<Parameter> parameters;
    size_t variables = 0;
    Block steps;
    std::vector<Trial> trials;
};

/* All functions, in the order of the files and in theirs. A text that cannot be read ends the program. */
const std::vector<Function> &functions();
const Function *function_named(const std::string &name);

/* Says where the text is wrong, and why. */
[[noreturn]]
void give_up(const std::string &place, const std::string &why);

/* Every statement of the text. */
std::vector<const Statement *> statements();

/* What a text calls "@name": memory that the caller hands to the module. Null when there is none. */
void *memory_of_caller(const std::string &name);

/* What a field is: where it lies and how many bytes it has; none of them is memory that is pointed to. */
struct FieldOf {
    const char *name;
    size_t offset;
    int bytes;
    bool network_order;
};
const FieldOf &field(long number);

#endif
