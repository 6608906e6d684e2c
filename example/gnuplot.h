#ifndef GNUPLOT_H
#define GNUPLOT_H

#include "output_file.h"

namespace host {

/// Runs a gnuplot script and writes the image that it prints to `output`. Fails if gnuplot is not installed.
void runGnuplot( const std::string &script, OutputFile &output );

} // namespace host

#endif
