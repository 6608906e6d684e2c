#include "operations.h"
#include "support.h"

// Random walks over the table of operations: each is a separate test. PCM_TEST_SEED=7 repeats or varies one.

namespace {

using operations::Operation, operations::Results;

class Walk : public testing::Test {
public:
    explicit Walk( const Operation &op ) : operation( op ) {}
    void TestBody() override
    {
        const uint64_t seed = test::seed( 1 );
        const test::NoLeaks noLeaks;
        test::Seeded in( seed );
        for ( int round = 0; round < operation.walkRounds && !HasFailure(); ++round ) {
            Results out;
            operation.run( out, in );
            const auto wrong = std::mismatch( out.got.begin(), out.got.end(), out.wanted.begin(), out.wanted.end() );
            EXPECT_TRUE( out.areRight() )
                << "PCM_TEST_SEED=" << seed << ", round " << round << ": " << out.got.size() << " bytes, "
                << out.wanted.size() << " wanted, different from byte " << wrong.first - out.got.begin() << "\n"
                << out.failures;
        }
    }

private:
    const Operation &operation;
};

[[maybe_unused]] const bool registered = [] {
    for ( const Operation &operation : operations::all() ) {
        std::string name = operation.name;
        for ( char &c : name )
            if ( !std::isalnum( static_cast<unsigned char>( c ) ) ) c = '_';
        testing::RegisterTest( ( "Walk" + operation.suite ).c_str(), name.c_str(), nullptr, nullptr, __FILE__,
            __LINE__, [&operation]() -> testing::Test * { return new Walk( operation ); } );
    }
    return true;
}();

TEST( Golden, ResultsAreTheKeptOnes ) { EXPECT_EQ( operations::compareWithGolden( GOLDEN_FILE, false ), 0 ); }

} // namespace
