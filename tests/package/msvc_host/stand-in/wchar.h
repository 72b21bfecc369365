/* Stands in for the Microsoft C library's header, of which Varnex.h takes nothing but wchar_t. */
#include <stddef.h>
