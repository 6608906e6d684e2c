// Verifies that results are bit-identical on every processor, by checksums of the results of every operation.
//
//     golden          prints the checksums of the models' results, for golden.txt
//     golden KEPT     compares the checksums of the library's results with those in the file KEPT; exits with 1 if
//     one
//                     differs that must be the same

#include "operations.h"

int main( int argc, char **argv )
{
    const pcm::Module module;
    if ( argc > 1 ) return operations::compareWithGolden( argv[1], true ) != 0;
    operations::printGolden();
    return 0;
}
