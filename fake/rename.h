/*
 * Goes in front of kel_socket.cpp, whose functions become kel_module_NAME here, and the calls of the system, libsctp
 * and tcmalloc that it makes kel_net_NAME. Only symbols change: __func__ and __FILE__ in reports are the module's.
 */
#ifndef FAKE_RENAME_H
#define FAKE_RENAME_H

#include <arpa/inet.h>
#include <gperftools/tcmalloc.h>
#include <net/if.h>
#include <regex.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "kel_prv_sctp.h"
#include "kel_prv_socket.h"
#include "kel_socket.h"

#define RENAME(name, prefix) extern "C" decltype(name) name __asm__(prefix #name);
#define EXPORT(result, name, ...) RENAME(name, "kel_module_")
#include "exports.inc"
#undef EXPORT

#define STEP(name) RENAME(name, "kel_net_")
#include "steps.inc"
#undef STEP
#undef RENAME

/* The module names one symbol by itself, unlink. */
#define __asm__(name) __asm__("kel_net_" name)

#endif
