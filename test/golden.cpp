// The same bits on every processor: checksums of what every operation gives.
//
//     golden          prints the checksums that the models give, for golden.txt
//     golden KEPT     compares the library's checksums with kept ones; exits with 1 if any promised one differs

#include "operations.h"

int main( int argc, char **argv )
{
    const pcm::Module module;
    if ( argc > 1 ) return operations::compareWithGolden( argv[1], true ) != 0;
    operations::printGolden();
    return 0;
}
