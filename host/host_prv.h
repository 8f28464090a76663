/* What the stand-in services share. */
#ifndef HOST_PRV_H
#define HOST_PRV_H

/*
 * Opens the definition of a service. Weak: a program that defines the service itself has its own called, and keeps the
 * others.
 */
#define HOST_SERVICE __attribute__((weak))

/* Tells one call to the watch, if there is one. errno survives. */
void host_tell(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* A service must not disturb the errno that a report is about to show. */
class KeepErrno
{
  public:
    KeepErrno();
    ~KeepErrno();
    KeepErrno(const KeepErrno &) = delete;
    KeepErrno &operator=(const KeepErrno &) = delete;

  private:
    int saved;
};

#endif
