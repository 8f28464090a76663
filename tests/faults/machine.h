/*
 * Does what the text says, on the stand-ins of the system and on the platform's services themselves: the trace, the
 * memory and the descriptors that it leaves are what a run of the module has to leave.
 */
#ifndef TESTS_FAULTS_MACHINE_H
#define TESTS_FAULTS_MACHINE_H

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "system.h"
#include "text.h"

class Machine
{
  public:
    long call(const Function &function, const std::vector<long> &arguments);

    /* The arguments of a trial, and what it does to the caller's memory before. */
    long value(const Expression &expression);
    void prepare(const Block &block);

    /* The call that is being made was answered in this way, by its number. */
    void answered(size_t taken);

    /* Tells whether the prints of the report that was just made have changed errno. */
    std::function<bool()> is_noisy;

    /* The steps in whose course each line of a trace came, and the one that gave the result. */
    const sys::Trace *trace = nullptr;
    std::vector<const Statement *> origins;
    const Statement *last = nullptr;

  private:
    struct Frame {
        const Function &function;
        std::vector<long> variables;
        bool is_done;
        long result;
    };

    long value(const Expression &expression, Frame &frame);
    bool holds(const Condition &condition, Frame &frame);
    void run(const Block &block, Frame &frame);
    void run(const Statement &statement, Frame &frame);
    void step(const Statement &statement, Frame &frame);
    void report(const Statement &statement, Frame &frame);
    void look_up(const Statement &statement, const Frame &frame);
    long *memory(size_t bytes);

    const Statement *current = nullptr;
    std::deque<std::vector<long>> memories;
};

#endif
