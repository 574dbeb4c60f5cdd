/* SPDX-License-Identifier: MIT */
/* platform_utils: the umbrella header, including every family of the library. */
#ifndef PLATFORM_UTILS_H
#define PLATFORM_UTILS_H

#include "uexport.h"
#include "uversion.h"
#include "umem.h"
#include "ulist.h"
#include "uqueue.h"
#include "ufsm.h"
#include "umap.h"
#include "uuniqueid.h"
#include "uhash.h"
#include "ustatus.h"
#include "ustr.h"
#include "ustrconv.h"
#include "ucsv.h"
#include "ustrurl.h"
#include "uevent.h"
#include "uasync.h"
#include "umonitor.h"
#include "uinputevent.h"
#include "utimer.h"
#include "utimeplan.h"
#include "uintervalplan.h"
#include "upara.h"
#include "uparaurl.h"
#include "usocket.h"
#include "uxmlparser.h"
#include "ub64.h"
#include "udigest.h"
#include "uaes.h"
#include "uuuid.h"
#include "ufile.h"

#endif /* PLATFORM_UTILS_H */
