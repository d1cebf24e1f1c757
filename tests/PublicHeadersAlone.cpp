// Compiled into OvraSyncTest: every public header, and nothing else, so that
// a system header pulled in by one of them stops the build. An application
// that includes Ovra.h must not see the platform's declarations.
#include "Ovra.h"
#include "OvraBstr.h"
#include "OvraCollect.h"
#include "OvraCrt.h"
#include "OvraCrypt.h"
#include "OvraCryptDes.h"
#include "OvraCryptDigest.h"
#include "OvraCryptHmac.h"
#include "OvraCryptRcX.h"
#include "OvraCryptRsa.h"
#include "OvraDebug.h"
#include "OvraFile.h"
#include "OvraFileFinder.h"
#include "OvraFormat.h"
#include "OvraInet.h"
#include "OvraLibrary.h"
#include "OvraMem.h"
#include "OvraMessage.h"
#include "OvraPlatform.h"
#include "OvraRand.h"
#include "OvraSync.h"
#include "OvraSystem.h"
#include "OvraThread.h"
#include "OvraTime.h"

#if defined(_PTHREAD_H) || defined(PTHREAD_MUTEX_INITIALIZER)
#error "a public header includes <pthread.h>"
#endif
#if defined(_WINDOWS_) || defined(_INC_WINDOWS) || defined(WINAPI)
#error "a public header includes <windows.h>"
#endif
#if defined(_UNISTD_H) || defined(_DLFCN_H) || defined(_SYS_STAT_H) || defined(_GLOB_H)
#error "a public header includes a POSIX system header"
#endif

// Referenced by the test, so that the object is linked and its checks count.
int OvraPublicHeadersAlone() { return static_cast<int>(sizeof(TCondVar)); }
