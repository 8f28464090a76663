/* What the public headers declare, compiled as C++; and what a program in C cannot ask of types and texts. */
#include "kel_lib.h"
#include "kel_module.h"
#include "kel_sctp.h"
#include "kel_socket.h"

#include "declarations.inc"

#include <limits.h>
#include <string_view>
#include <type_traits>

template <typename Left, typename Right> constexpr bool same = std::is_same<Left, Right>::value;

static_assert(same<VOID, void> && same<BOOL, int> && same<CHAR, char> && same<UCHAR, unsigned char> &&
              same<SHORT, short> && same<LONG, long> && same<ULONG, unsigned long>);
static_assert(same<sctp_assoc_t, int> && same<kel_domain_t, enum kel_domain_e> &&
              same<kel_socktype_t, enum kel_socktype_e> && same<module_type_t, enum module_type_e>);
static_assert(same<std::underlying_type_t<kel_domain_t>, int> && same<std::underlying_type_t<kel_socktype_t>, int>);

static_assert(same<kel_sockaddr_t, union kel_sockaddr_u> && same<decltype(kel_sockaddr_t::sa), struct sockaddr> &&
              same<decltype(kel_sockaddr_t::sin), struct sockaddr_in> &&
              same<decltype(kel_sockaddr_t::sin6), struct sockaddr_in6> &&
              same<decltype(kel_sockaddr_t::un), struct sockaddr_un> &&
              same<decltype(kel_sockaddr_t::raw), struct sockaddr_ll>);

static_assert(same<kel_module_t, struct kel_module_s> && same<decltype(kel_module_t::modType), module_type_t> &&
              same<decltype(kel_module_t::commType), long> && same<decltype(kel_module_t::moduleID), unsigned long> &&
              same<decltype(kel_module_t::name), char[48]> && same<decltype(kel_module_t::queueID), unsigned long> &&
              same<decltype(kel_module_t::paraCount), long> && same<decltype(kel_module_t::pPara), void *> &&
              same<decltype(kel_module_t::paraLock), long> &&
              same<decltype(kel_module_t::userTaskEntry), long (*)(unsigned long *)> &&
              same<decltype(kel_module_t::pHostTask), void *>);
static_assert(same<KEL_user_task_entry, KEL_msg_code_handler_ptr>);

static_assert(!MODULE_ID_IS_ILLEGAL(0) && !MODULE_ID_IS_ILLEGAL(1) && !MODULE_ID_IS_ILLEGAL(255) &&
              !MODULE_ID_IS_ILLEGAL(255ul));
static_assert(MODULE_ID_IS_ILLEGAL(256) && MODULE_ID_IS_ILLEGAL(257) && MODULE_ID_IS_ILLEGAL(-1) &&
              MODULE_ID_IS_ILLEGAL((SHORT)-1) && MODULE_ID_IS_ILLEGAL(INT_MIN) && MODULE_ID_IS_ILLEGAL(UINT_MAX) &&
              MODULE_ID_IS_ILLEGAL(LONG_MIN) && MODULE_ID_IS_ILLEGAL(LONG_MAX) && MODULE_ID_IS_ILLEGAL(ULONG_MAX) &&
              MODULE_ID_IS_ILLEGAL(0x100000000)); /* not cut to 32 bits */

constexpr bool is_text(std::string_view text, std::string_view expected)
{
    return text == expected;
}
static_assert(is_text(IPV4_ANY_STR, "0.0.0.0") && is_text(IPV6_ANY_STR, "::"));
static_assert(is_text(KEL_COLOR_NONE, "\033[m") && is_text(KEL_COLOR_RED, "\033[1;31m") &&
              is_text(KEL_COLOR_BLUE, "\033[1;34m") && is_text(KEL_COLOR_PURPLE, "\033[1;35m") &&
              is_text(KEL_COLOR_GREEN, "\033[1;32m"));
