/* What the public headers declare, compiled as C. */
#include "kel_lib.h"
#include "kel_module.h"
#include "kel_sctp.h"
#include "kel_socket.h"

#include "declarations.inc"
