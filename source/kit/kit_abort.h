#ifndef KIT_ABORT_H
#define KIT_ABORT_H

/** @file
 * The end of a process that has broken a contract.
 */

#include "kit_api.h"

KIT_C_BEGIN

/**
 * Ends the process because a contract is broken: writes one line to stderr and calls `abort()`.
 *
 * The libraries always call it through the dynamic symbol table: a host or a test that defines a function of this
 * name gets the call in its place. Such a function must not return.
 *
 * @param context what was being done, or null
 * @param file the source file whose contract is broken, without its extension
 * @param line the line of the check
 * @param condition the text of the condition that does not hold, or null
 */
KIT_API KIT_NORETURN void kit___Abort( const char *context, const char *file, int64_t line, const char *condition );

KIT_C_END

#endif
