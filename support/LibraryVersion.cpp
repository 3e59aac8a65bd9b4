#include "NymbrelCore/NYBConstants.h"

// The version symbols every framework of the platform exports.
extern "C" __attribute__((visibility("default"))) const double NymbrelCoreVersionNumber = 1.0;
extern "C" __attribute__((visibility("default"))) const unsigned char NymbrelCoreVersionString[] =
    "@(#)PROGRAM:NymbrelCore  PROJECT:NymbrelCore-1\n";
