#ifndef KIT_ABORT_H
#define KIT_ABORT_H

/** @file
 * Contract violations.
 */

#include "kit_api.h"

KIT_C_BEGIN

/**
 * Reports a contract violation: writes one line to stderr and calls `abort()`.
 *
 * The libraries always call this function through the dynamic symbol table, so a host or a test can replace it by
 * defining a function of the same name. The replacement must not return.
 *
 * @param context the operation in progress, or null
 * @param file the source file of the check, relative to the project's root and without its extension
 * @param line the line number of the check
 * @param condition the text of the condition that is false, or null for code that must not be reached
 */
KIT_API KIT_NORETURN void kit___Abort( const char *context, const char *file, int64_t line, const char *condition );

KIT_C_END

#endif
