/* What every peer of the measurements does, and how it says so. */
#ifndef BENCH_WORK_H
#define BENCH_WORK_H

/* One operation of a peer, by its name in bench/plan.py. */
struct Operation {
    const char *name;
    void (*prepare)();          /* once, not counted: opens what the operation needs; or null */
    void (*repeat)(long count); /* counted; null where the peer has no call for it */
    const char *note = nullptr; /* in which way the work is not quite the same, or why there is none */
};

/* The peer's operations; one without a name is the last. */
extern const Operation operations[];

/* Does Once again and again, with nothing else in the loop. */
template <void (*Once)()> void repeat(long count)
{
    for (long i = 0; i < count; i++) {
        Once();
    }
}

/* A line of a peer's table: the function's name is the operation's. */
#define OPERATION(name, prepare, ...) {#name, prepare, repeat<name>, ##__VA_ARGS__}
#define NO_OPERATION(name, reason) {#name, nullptr, nullptr, reason}

/* Notes that several peers give. */
#define WITHOUT_FAMILY "address and port, without the family's name"
#define WITHOUT_PORTS "without the ports"
#define NO_LINE "text of the address alone, none with the port"
#define NO_COMPARISON "no comparison of addresses"

/* Ends the program with a message when something that must hold does not. A measurement of failures is none. */
#define REQUIRE(condition) ((condition) ? (void)0 : work_failed(#condition, __FILE__, __LINE__))
[[noreturn]]
void work_failed(const char *condition, const char *file, int line) __attribute__((cold));

/* Keeps a result that nobody reads, so that the work is not optimised away. */
template <typename T> inline void keep(const T &value)
{
    __asm__ volatile("" : : "r"(&value) : "memory");
}

/* Texts and sizes that every peer uses. */
constexpr char IPV4_LOOPBACK[] = "127.0.0.1";
constexpr char IPV6_LOOPBACK[] = "::1";
constexpr char IPV4_TEXT[] = "192.168.10.200";
constexpr char IPV6_TEXT[] = "2001:db8:85a3::8a2e:370:7334";
constexpr unsigned short PORT_IN_TEXT = 9000;
constexpr int BACKLOG = 5;
constexpr int DATAGRAM = 64;

/* What several operations need first: a TCP server on 127.0.0.1, in a process of its own, that accepts and closes. */
extern unsigned short server_port;
void find_server();

/* A port that nobody has, for a library that goes about it in another way where the system is to choose one. */
extern unsigned short free_port;
void choose_port();

/* A path for a local socket, in a folder of the program's own. */
extern const char *path;
void choose_path();

#endif
