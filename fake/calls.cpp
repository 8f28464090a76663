/*
 * The exported functions: each call is recorded, then answered by a script, by the test's own function or by the
 * module.
 */
#include "calls.h"

#include <algorithm>
#include <deque>
#include <errno.h>
#include <map>
#include <memory>
#include <mutex>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "kel_sctp.h"
#include "kel_socket_fake.h"
#include "network.h"

namespace kel_fake
{
namespace
{

/* ---- Records ----------------------------------------------------------------------------------------------------- */

struct Record {
    kel_fake_call_t call = {};
    std::vector<kel_fake_argument_t> arguments;
    std::deque<std::string> kept; /* what the arguments' data points to */

    const kel_fake_argument_t *find(const std::string &name) const
    {
        for (const kel_fake_argument_t &argument : arguments) {
            if (name == argument.name) {
                return &argument;
            }
        }
        return nullptr;
    }

    void keep(kel_fake_argument_t &argument, const void *data, size_t size)
    {
        kept.emplace_back(static_cast<const char *>(data), size);
        argument.data = kept.back().c_str();
        argument.size = size;
    }

    /* The bytes of a buffer: the parameter that counts them is a number, or points to one. */
    size_t length(size_t otherwise) const
    {
        for (const char *name : {"len", "size", "optlen"}) {
            if (const kel_fake_argument_t *found = find(name)) {
                return found->data == nullptr ? (size_t)found->value : *static_cast<const socklen_t *>(found->data);
            }
        }
        return otherwise;
    }

    /* The elements of a list, as "s_addrcnt" tells those of s_addrs and of s_addrStr. A single record has no count. */
    size_t elements(const std::string &name) const
    {
        const kel_fake_argument_t *found = find(name.substr(0, name.find("addr")) + "addrcnt");
        if (found == nullptr) {
            return name == "addrs" ? 0 : 1;
        }
        constexpr LONG most = 1000; /* more is no list: the module finds no memory for it */
        return found->value < 0 || found->value > most ? 0 : (size_t)found->value;
    }
};

template <typename Pointer> using pointee = std::remove_cv_t<std::remove_pointer_t<Pointer>>;

template <typename Pointee> constexpr size_t size_of = sizeof(Pointee);
template <> constexpr size_t size_of<void> = 1;

template <typename Pointer> constexpr bool is_input = std::is_const_v<std::remove_pointer_t<Pointer>>;

template <typename Value> void keep_data(Record &record, kel_fake_argument_t &argument, Value value)
{
    if constexpr (std::is_pointer_v<Value>) {
        using Pointee = pointee<Value>;
        if (value == nullptr) {
            return;
        }
        if constexpr (std::is_same_v<Pointee, char>) {
            if (is_input<Value> || record.find("size") == nullptr) { /* the others receive a text */
                record.keep(argument, value, strlen(value));
            }
        } else if constexpr (std::is_void_v<Pointee>) {
            if (is_input<Value>) {
                record.keep(argument, value, record.length(0));
            }
        } else if constexpr (std::is_same_v<Pointee, CHAR *>) {
            std::vector<const char *> texts;
            for (size_t i = 0; i < record.elements(argument.name); i++) {
                texts.push_back(value[i] == nullptr ? nullptr : record.kept.emplace_back(value[i]).c_str());
            }
            record.keep(argument, texts.data(), texts.size() * sizeof(texts[0]));
        } else if constexpr (std::is_same_v<Pointee, kel_sockaddr_t>) {
            record.keep(argument, value, record.elements(argument.name) * sizeof(kel_sockaddr_t));
        } else if constexpr (std::is_class_v<Pointee> || std::is_same_v<Pointee, socklen_t>) {
            record.keep(argument, value, sizeof(Pointee));
        }
    }
}

/* ---- Scripts ----------------------------------------------------------------------------------------------------- */

struct Script {
    LONG result;
    int error;
    LONG times;
    std::string step; /* fails in the module; none: the module is not asked */
    std::map<std::string, std::string> outputs;
};

template <typename Value> void write_output(const Record &record, size_t index, Value value, const Script &script)
{
    const char *name = record.arguments[index].name;
    auto found = script.outputs.find(name);
    if (found == script.outputs.end()) {
        return;
    }
    const std::string &data = found->second;
    if constexpr (!std::is_pointer_v<Value>) {
        refuse("%s of %s is a number: nothing can be written there", name, record.call.function);
    } else if constexpr (is_input<Value> || std::is_same_v<pointee<Value>, CHAR *>) {
        refuse("%s of %s is only read: nothing can be written there", name, record.call.function);
    } else if (value != nullptr) {
        using Pointee = pointee<Value>;
        if constexpr (std::is_same_v<Pointee, kel_sockaddr_t *>) {
            *value = static_cast<kel_sockaddr_t *>(malloc(data.size()));
            memcpy(*value, data.data(), data.size());
        } else {
            const size_t room = size_of<Pointee> == 1 ? record.length(data.size()) : size_of<Pointee>;
            memcpy(value, data.data(), std::min(data.size(), room));
        }
    }
}

struct Export {
    const char *name;
    const char *arguments; /* their names, with commas between them */
    std::deque<Script> scripts = {};
    kel_fake_function_t replacement = nullptr;
};

struct State {
    std::mutex mutex;
    std::deque<Export> exports = {
#define EXPORT(result, name, parameters, ...) {#name, #__VA_ARGS__},
#include "exports.inc"
#undef EXPORT
    };
    std::deque<std::shared_ptr<Record>> records;

    Export &need(const char *function)
    {
        for (Export &entry : exports) {
            if (strcmp(entry.name, function) == 0) {
                return entry;
            }
        }
        refuse("no function is called %s", function);
    }
};

/* Never destroyed: other threads and destructors of the test may still call. */
State &state()
{
    static State &only = *new State;
    return only;
}

thread_local const Script *running;   /* of the function that is running, if one of its steps fails */
thread_local bool inside_replacement; /* what that calls is the module's */

/* Gives a variable another value to the end of a block, also where an exception is that end. */
template <typename Value> class Change
{
  public:
    Change(Value &changed, Value value) : variable(changed), before(std::exchange(changed, value))
    {
    }
    ~Change()
    {
        variable = before;
    }
    Change(const Change &) = delete;
    Change &operator=(const Change &) = delete;

  private:
    Value &variable;
    const Value before;
};

/* ---- One call ---------------------------------------------------------------------------------------------------- */

std::shared_ptr<Record> new_record(const Export &entry)
{
    auto record = std::make_shared<Record>();
    record->call.function = entry.name;
    const std::string names = entry.arguments;
    for (size_t from = 0; from < names.size();) {
        size_t to = std::min(names.find(',', from), names.size());
        record->arguments.push_back({record->kept.emplace_back(names.substr(from, to - from)).c_str(), 0, nullptr, 0});
        from = names.find_first_not_of(", ", to);
    }
    record->call.arguments = record->arguments.data();
    record->call.count = (LONG)record->arguments.size();
    return record;
}

std::unique_ptr<Script> next_script(Export &entry)
{
    if (entry.scripts.empty()) {
        return nullptr;
    }
    auto script = std::make_unique<Script>(entry.scripts.front());
    if (script->times != KEL_FAKE_ALWAYS && --entry.scripts.front().times <= 0) {
        entry.scripts.pop_front();
    }
    return script;
}

template <typename Result, typename... Arguments>
Result pass(const char *name, Result (*module)(Arguments...), Arguments... arguments)
{
    if (inside_replacement) {
        return module(arguments...);
    }

    const int before = errno;
    Export &entry = state().need(name);
    const std::shared_ptr<Record> record = new_record(entry); /* a reset may forget it while the call goes on */
    [[maybe_unused]]
    size_t i = 0;
    ((record->arguments[i++].value = (LONG)arguments), ...);
    i = 0;
    (keep_data(*record, record->arguments[i++], arguments), ...);

    std::unique_lock lock(state().mutex);
    state().records.push_back(record);
    const std::unique_ptr<Script> script = next_script(entry);
    const kel_fake_function_t replacement = entry.replacement;
    lock.unlock();

    Result result;
    errno = before;
    if (script != nullptr && script->step.empty()) {
        i = 0;
        (write_output(*record, i++, arguments, *script), ...);
        result = (Result)script->result;
        errno = script->error != 0 ? script->error : before;
    } else if (script == nullptr && replacement != nullptr) {
        const Change now(inside_replacement, true);
        result = reinterpret_cast<Result (*)(Arguments...)>(replacement)(arguments...);
    } else {
        const Change<const Script *> now(running, script.get());
        result = module(arguments...);
    }

    const int behind = errno;
    lock.lock();
    record->call.result = (LONG)result;
    record->call.error = behind;
    lock.unlock();
    errno = behind;
    return result;
}

} // namespace

bool fails(const char *step)
{
    if (running == nullptr || running->step != step) {
        return false;
    }
    errno = running->error;
    return true;
}

void refuse(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    fputs("kel_socket_fake: ", stderr);
    vfprintf(stderr, format, arguments);
    fputs("\n", stderr);
    va_end(arguments);
    abort();
}

} // namespace kel_fake

using namespace kel_fake;

extern "C" {

#define EXPORT(result, name, parameters, ...)                                                                          \
    decltype(name) kel_module_##name;                                                                                  \
    result name parameters                                                                                             \
    {                                                                                                                  \
        return pass(#name, &kel_module_##name, ##__VA_ARGS__);                                                         \
    }
#include "exports.inc"
#undef EXPORT

void kel_fake_reset(void)
{
    {
        const std::lock_guard lock(state().mutex);
        for (Export &entry : state().exports) {
            entry.scripts.clear();
            entry.replacement = nullptr;
        }
        state().records.clear();
    }
    running = nullptr; /* longjmp() out of a function leaves both as they were inside it */
    inside_replacement = false;
    kel_fake_net::reset();
}

void kel_fake_return(const char *function, LONG result, int error, LONG times)
{
    const std::lock_guard lock(state().mutex);
    state().need(function).scripts.push_back({result, error, times, "", {}});
}

void kel_fake_output(const char *function, const char *argument, const void *data, size_t size)
{
    const std::lock_guard lock(state().mutex);
    Export &entry = state().need(function);
    if (entry.scripts.empty() || !entry.scripts.back().step.empty()) {
        refuse("%s has no kel_fake_return() that %s could be added to", function, argument);
    }
    if ((", " + std::string(entry.arguments) + ",").find(std::string(", ") + argument + ",") == std::string::npos) {
        refuse("%s has no parameter %s", function, argument);
    }
    entry.scripts.back().outputs[argument].assign(static_cast<const char *>(data), size);
}

void kel_fake_fail(const char *function, const char *step, int error, LONG times)
{
    constexpr const char *steps[] = {
#define STEP(name) #name,
#include "steps.inc"
#undef STEP
    };
    if (std::none_of(std::begin(steps), std::end(steps), [&](const char *known) { return strcmp(known, step) == 0; })) {
        refuse("no step is called %s", step);
    }
    const std::lock_guard lock(state().mutex);
    state().need(function).scripts.push_back({0, error, times, step, {}});
}

void kel_fake_replace(const char *function, kel_fake_function_t replacement)
{
    const std::lock_guard lock(state().mutex);
    state().need(function).replacement = replacement;
}

LONG kel_fake_calls(const char *function)
{
    const std::lock_guard lock(state().mutex);
    const char *name = function == nullptr ? nullptr : state().need(function).name;
    LONG count = 0;
    for (const auto &record : state().records) {
        count += name == nullptr || record->call.function == name ? 1 : 0;
    }
    return count;
}

const kel_fake_call_t *kel_fake_call(const char *function, LONG index)
{
    if (index < 0) {
        index += kel_fake_calls(function);
    }
    const std::lock_guard lock(state().mutex);
    const char *name = function == nullptr ? nullptr : state().need(function).name;
    for (const auto &record : state().records) {
        if ((name == nullptr || record->call.function == name) && index-- == 0) {
            return &record->call;
        }
    }
    return nullptr;
}

const kel_fake_argument_t *kel_fake_argument(const kel_fake_call_t *call, const char *argument)
{
    if (call == nullptr) {
        refuse("there is no call whose %s could be looked up", argument);
    }
    for (LONG i = 0; i < call->count; i++) {
        if (strcmp(call->arguments[i].name, argument) == 0) {
            return &call->arguments[i];
        }
    }
    refuse("%s has no parameter %s", call->function, argument);
}
}
