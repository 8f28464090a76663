/* What the network asks of the layer in front of the module. */
#ifndef FAKE_CALLS_H
#define FAKE_CALLS_H

namespace kel_fake
{

/* Whether a script has this step of the function that is running fail; errno is set then. */
bool fails(const char *step);

/* Ends the program: what a test asks for does not exist. */
[[noreturn]]
void refuse(const char *format, ...) __attribute__((format(printf, 1, 2)));

} // namespace kel_fake

#endif
