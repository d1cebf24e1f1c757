// OvraSysCallAccess.cpp - linked only into the test build of the library
// (libovra_faults.so, ovra_faults.dll), beside the library's own objects: it
// hands the tests the hidden system-call table, so that single entries can
// be made to fail.
#define OVRA_FAULTS_BUILDING
#include "OvraSysCallAccess.h"

SSysCalls* OvraTestSysCalls() { return &g_ovraSysCalls; }

const SSysCalls* OvraTestRealSysCalls() { return &g_ovraRealSysCalls; }
