#include "kit_module.h"

#include "kit_check.hh"

void kitModuleStartup( KIT_MODULE *module )
{
    KIT_CHECK( module );
    int32_t started = module->startup();
    KIT_CHECK( started );
}

void kitModuleShutdown( KIT_MODULE *module )
{
    KIT_CHECK( module );
    module->shutdown();
}
