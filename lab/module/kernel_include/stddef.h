/* The public headers ask for it; the kernel has its names elsewhere. */
#include <linux/stddef.h>
