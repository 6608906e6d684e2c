#include "pcm_module.h"

#include "pcm_encoding.h"
#include "pcm_filter_coefficients.h"
#include "pcm_filter_type.h"
#include "pcm_module.hh"
#include "pcm_noise.h"
#include "pcm_src_type.h"

#include "kit/kit_check.hh"

#include <iterator>

#include "pcm_build.h" // made by the build: PCM_VERSION_..., PCM_BUILD_TIME, PCM_FLAVOUR

#define PRODUCT_ID "velmorix"
#define MODULE_NAME "pcm"
#define MODULE_VERSION "0.0"

#if defined( _WIN32 )
    #define PLATFORM "Windows"
#elif defined( __APPLE__ )
    #define PLATFORM "macOS"
#elif defined( __linux__ )
    #define PLATFORM "Linux"
#else
    #define PLATFORM "POSIX"
#endif

#if defined( __x86_64__ ) || defined( __i386__ ) || defined( _M_X64 ) || defined( _M_IX86 )
    #define PROCESSOR "x86"
#elif defined( __aarch64__ ) || defined( __arm__ ) || defined( _M_ARM64 )
    #define PROCESSOR "ARM"
#elif defined( __riscv )
    #define PROCESSOR "RISC-V"
#elif defined( __powerpc__ )
    #define PROCESSOR "POWER"
#elif defined( __s390__ )
    #define PROCESSOR "z/Architecture"
#else
    #define PROCESSOR "other"
#endif

#if INTPTR_MAX > INT32_MAX
    #define WIDTH "64 bit"
#else
    #define WIDTH "32 bit"
#endif

static constexpr struct {
    void ( *startup )( void );
    void ( *shutdown )( void );
} parts[] = {
    { pcm___EncodingStartup, pcm___EncodingShutdown },
    { pcm___FilterCoefficientsStartup, pcm___FilterCoefficientsShutdown },
    { pcm___FilterTypeStartup, pcm___FilterTypeShutdown },
    { pcm___SrcTypeStartup, pcm___SrcTypeShutdown },
    { pcm___NoiseStartup, pcm___NoiseShutdown },
};

// Start-ups without a matching shut-down.
static int64_t starts;

bool pcm::moduleIsStarted() { return starts > 0; }

static int32_t pcm___ModuleStartup( void )
{
    if ( starts++ == 0 )
        for ( auto &part : parts ) part.startup();
    return 1;
}

static void pcm___ModuleShutdown( void )
{
    KIT_CHECK( starts > 0 );
    if ( --starts > 0 ) return;
    for ( auto part = std::end( parts ); part != std::begin( parts ); ) ( --part )->shutdown();
}

const KIT_MODULE_RECORD pcm___module_record = {
    .recordVersion = 2,
    .productId = PRODUCT_ID,
    .productName = "velmorix suite",
    .productVersionMajor = PCM_VERSION_MAJOR,
    .productVersionMinor = PCM_VERSION_MINOR,
    .productVersionPatch = PCM_VERSION_PATCH,
    .buildTime = PCM_BUILD_TIME,
    .makerName = "The pcm authors",
    .noticeLine = "Copyright (C) 2026 the pcm authors",
    .moduleName = MODULE_NAME,
    .moduleTitle = "Pulse Code Modulated Audio Data",
    .moduleVersion = MODULE_VERSION,
    .moduleDependencies = "kit",
    .moduleTrailer = "",
};

const char *const pcm___module_version_string =
    "###QM_VERSION### " PRODUCT_ID "-" PCM_VERSION " (" PLATFORM ", " PROCESSOR " (" WIDTH "), " PCM_FLAVOUR
    "), " MODULE_NAME " " MODULE_VERSION;

KIT_MODULE pcm___module = { KIT_STATIC_HEADER( KIT_KIND_MODULE ), &pcm___module_record, pcm___ModuleStartup, nullptr,
    pcm___ModuleShutdown };

KIT_MODULE *pcmModule( void ) { return &pcm___module; }
