/* What kelcat tells on standard error: sentences, and the module's reports. */
#ifndef KELCAT_SAY_H
#define KELCAT_SAY_H

#include <cstdarg>

/* One sentence behind "kelcat: ", and a line end. A progress line makes room, and reports made by then come first. */
void say(const char *format, ...) __attribute__((format(printf, 1, 2)));
void say_list(const char *format, va_list args) __attribute__((format(printf, 1, 0)));

/* The text is shown in the last line, in place of the one before, until there is something to say; null: no more. */
void show_line(const char *text);

/* The module prints its reports to stdout. From now on they are kept, and standard output is left to the data. */
void keep_reports();

/* Shows the reports that were made since, each on a line of its own. */
void show_reports();

/* Seconds of a clock that nobody sets; and a time that does not come. */
double now_seconds();
const double never = 1e18;

#endif
