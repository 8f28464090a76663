#include "trace.h"

#include <algorithm>
#include <gperftools/tcmalloc.h>
#include <map>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kel_prv_sctp.h"

namespace sys
{
namespace
{

/* Larger requests are answered as tcmalloc answers them, without asking a real allocator, which a sanitizer watches. */
constexpr size_t largest_block = 1 << 24;

/* What a fresh block holds: the module must not count on zeros. */
constexpr int stale = 0xa5;

/* Memory that the module was given and has to hand back, by the name under which the trace shows it. */
struct Piece {
    std::string name;
    size_t size;
};
std::map<void *, Piece> memory;
int blocks;
int lists;

std::vector<kel_sockaddr_t> addresses;
int received_flags;

socklen_t entry_length(sa_family_t family)
{
    return family == KEL_AF_INET6 ? sizeof(struct sockaddr_in6) : sizeof(struct sockaddr_in);
}

/* The bytes of a packed list; its entries are as long as the first one's family says. */
std::string packed(const struct sockaddr *list, int count)
{
    return hex(list, count > 0 ? (size_t)count * entry_length(list->sa_family) : 0);
}

/*
 * Around each piece of memory lie bytes that nobody may write, other ones each time. Behind it the sanitizer's do,
 * which see reading, too.
 */
constexpr size_t guard = 112;
#ifdef __SANITIZE_ADDRESS__
constexpr size_t guard_behind = 0;
#else
constexpr size_t guard_behind = guard;
#endif

char guard_byte(const std::string &name)
{
    return (char)(name.front() + name.back());
}

void *allocate(size_t size, const std::string &name)
{
    char *start = static_cast<char *>(malloc(guard + size + guard_behind));
    memset(start, guard_byte(name), guard + size + guard_behind);
    memory[start + guard] = {name, size};
    return memset(start + guard, stale, size);
}

std::string name_of(void *given, const Piece &piece)
{
    const char *start = static_cast<char *>(given);
    auto is_guard = [&](char byte) { return byte == guard_byte(piece.name); };
    const bool is_intact = std::all_of(start - guard, start, is_guard) &&
                           std::all_of(start + piece.size, start + piece.size + guard_behind, is_guard);
    return is_intact ? piece.name : piece.name + ", written beside";
}

void deallocate(void *given)
{
    free(static_cast<char *>(given) - guard);
}

/* Hands memory back: shown by its name, and anything that was not handed out as "?". */
std::string release(void *given)
{
    auto found = memory.find(given);
    if (found == memory.end()) {
        return pointer(given);
    }
    std::string name = name_of(given, found->second);
    memory.erase(found);
    deallocate(given);
    return name;
}

/* A packed list as libsctp returns it: in memory of its own, ending where its last entry ends. */
int give_list(const char *call, int sd, sctp_assoc_t id, struct sockaddr **list)
{
    int count = (int)answered(call, text("%d, %d, %s", sd, id, pointer(*list).c_str()), (long)addresses.size());
    if (count == -1 || addresses.empty()) {
        return count;
    }

    socklen_t length = entry_length(addresses[0].sa.sa_family);
    char *copy = static_cast<char *>(allocate(addresses.size() * length, text("list %d", ++lists)));
    for (size_t i = 0; i < addresses.size(); i++) {
        memcpy(copy + i * length, &addresses[i], length);
    }
    *list = reinterpret_cast<struct sockaddr *>(copy);
    return count;
}

int take_list(const char *call, struct sockaddr *list)
{
    return (int)answered(call, release(list), 0);
}

/* Calls of libsctp do not go through: on a kernel without SCTP the real ones only fail. */
void demand_recording(const char *name)
{
    if (!recording()) {
        fprintf(stderr, "%s was called without a recording\n", name);
        abort();
    }
}

} // namespace

void set_addresses(const std::vector<kel_sockaddr_t> &records)
{
    addresses = records;
}

std::string held_block(void *given)
{
    auto found = memory.find(given);
    return found == memory.end() ? "" : found->second.name;
}

void set_received_flags(int flags)
{
    received_flags = flags;
}

void forget_sctp()
{
    for (auto &[block, piece] : memory) {
        deallocate(block);
    }
    memory.clear();
    blocks = lists = 0;
}

std::set<std::string> Recording::held() const
{
    std::set<std::string> names;
    for (auto &[block, piece] : memory) {
        names.insert(name_of(block, piece));
    }
    return names;
}

} // namespace sys

using namespace sys;

extern "C" {

/*
 * The trace shows the size as a signed number, and the block's number. The block is no longer than was asked for, so a
 * sanitizer sees a write behind it.
 */
void *tc_malloc(size_t size) noexcept
{
    if (!recording()) {
        return malloc(size);
    }
    long number = answered("tc_malloc", text("%ld", (long)size), size > largest_block ? 0 : blocks + 1);
    if (number == 0) {
        return nullptr;
    }
    return allocate(std::min(size, largest_block), text("block %d", ++blocks));
}

void tc_free(void *block) noexcept
{
    if (!recording()) {
        free(block);
        return;
    }
    answered("tc_free", release(block), 0);
}

int sctp_bindx(int sd, struct sockaddr *addrs, int addrcnt, int flags)
{
    demand_recording("sctp_bindx");
    return (int)answered("sctp_bindx", text("%d, %s, %d, %d", sd, packed(addrs, addrcnt).c_str(), addrcnt, flags), 0);
}

int sctp_connectx(int sd, struct sockaddr *addrs, int addrcnt, sctp_assoc_t *id)
{
    demand_recording("sctp_connectx");
    long result = answered("sctp_connectx",
                           text("%d, %s, %d, %s", sd, packed(addrs, addrcnt).c_str(), addrcnt, pointer(id).c_str()), 0);
    if (result != -1 && id != nullptr) {
        *id = association;
    }
    return (int)result;
}

int sctp_getpaddrs(int sd, sctp_assoc_t id, struct sockaddr **addrs)
{
    demand_recording("sctp_getpaddrs");
    return give_list("sctp_getpaddrs", sd, id, addrs);
}

int sctp_getladdrs(int sd, sctp_assoc_t id, struct sockaddr **addrs)
{
    demand_recording("sctp_getladdrs");
    return give_list("sctp_getladdrs", sd, id, addrs);
}

int sctp_freepaddrs(struct sockaddr *addrs)
{
    demand_recording("sctp_freepaddrs");
    return take_list("sctp_freepaddrs", addrs);
}

int sctp_freeladdrs(struct sockaddr *addrs)
{
    demand_recording("sctp_freeladdrs");
    return take_list("sctp_freeladdrs", addrs);
}

int sctp_send(int sd, const void *msg, size_t len, const struct sctp_sndrcvinfo *sinfo, int flags)
{
    demand_recording("sctp_send");
    return (int)answered("sctp_send",
                         text("%d, %s, %zu, %s, %d", sd, pointer(msg).c_str(), len, pointer(sinfo).c_str(), flags),
                         (long)len);
}

int sctp_sendmsg(int sd, const void *msg, size_t len, struct sockaddr *to, socklen_t tolen, uint32_t ppid,
                 uint32_t flags, uint16_t stream_no, uint32_t timetolive, uint32_t context)
{
    demand_recording("sctp_sendmsg");
    return (int)answered("sctp_sendmsg",
                         text("%d, %s, %zu, %s, %u, ppid %u, flags %u, stream %u, timetolive %u, context %u", sd,
                              pointer(msg).c_str(), len, address(to, tolen).c_str(), tolen, ppid, flags, stream_no,
                              timetolive, context),
                         (long)len);
}

int sctp_recvmsg(int sd, void *msg, size_t len, struct sockaddr *from, socklen_t *fromlen,
                 struct sctp_sndrcvinfo *sinfo, int *msg_flags)
{
    demand_recording("sctp_recvmsg");
    int count = (int)answered("sctp_recvmsg",
                              text("%d, %s, %zu, %s, %u, %s, %d", sd, pointer(msg).c_str(), len, pointer(from).c_str(),
                                   *fromlen, pointer(sinfo).c_str(), *msg_flags),
                              (long)len);
    *msg_flags = received_flags; /* by a call that fails, too: the module must keep them to itself then */
    if (count != -1) {
        fill_peer(from, fromlen);
    }
    return count;
}

int sctp_peeloff(int sd, sctp_assoc_t assoc_id)
{
    demand_recording("sctp_peeloff");
    return make("sctp_peeloff", text("%d, %d", sd, assoc_id));
}

int sctp_opt_info(int sd, sctp_assoc_t id, int opt, void *arg, socklen_t *size)
{
    demand_recording("sctp_opt_info");
    return (int)answered("sctp_opt_info",
                         text("%d, %d, %d, %s, %s", sd, id, opt, pointer(arg).c_str(), pointer(size).c_str()), 0);
}
}
