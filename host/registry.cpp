/* The module registry: identifiers 1 to 255, in the order of registration. 0 is the print filter's, in every log. */
#include "host.h"
#include "host_prv.h"

#include <pthread.h>
#include <string.h>

static kel_module_t *records[MODULE_ID_MAX]; /* by identifier; the first stays empty */
static ULONG record_count;
static pthread_mutex_t records_lock = PTHREAD_MUTEX_INITIALIZER;

HOST_SERVICE LONG KEL_module_register(const char *name, kel_module_t *record)
{
    LONG result = KEL_ERROR;
    pthread_mutex_lock(&records_lock);
    const ULONG id = record_count + 1;
    if (!MODULE_ID_IS_ILLEGAL(id) && strlen(name) < MODULE_NAME_LEN) {
        strcpy(record->name, name);
        record->moduleID = id;
        records[id] = record;
        record_count = id;
        result = KEL_OK;
    }
    pthread_mutex_unlock(&records_lock);
    host_tell("register(%s) = %ld", name, result);
    return result;
}

ULONG host_registry_count(void)
{
    pthread_mutex_lock(&records_lock);
    ULONG count = record_count;
    pthread_mutex_unlock(&records_lock);
    return count;
}

kel_module_t *host_registry_record(ULONG id)
{
    pthread_mutex_lock(&records_lock);
    kel_module_t *record = id <= record_count ? records[id] : nullptr;
    pthread_mutex_unlock(&records_lock);
    return record;
}

void host_registry_clear(void)
{
    pthread_mutex_lock(&records_lock);
    record_count = 0;
    pthread_mutex_unlock(&records_lock);
}
