#ifndef GNUPLOT_H
#define GNUPLOT_H

#include "output_file.h"

namespace host {

/// Runs gnuplot, which must be installed, on the text of a script, and writes what it draws to a file.
void runGnuplot( const std::string &script, OutputFile &output );

} // namespace host

#endif
