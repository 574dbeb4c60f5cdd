/* platform_utils: the umbrella header, including every family of the library. */
#ifndef PLATFORM_UTILS_H
#define PLATFORM_UTILS_H

#include "uexport.h"
#include "umem.h"
#include "ulist.h"
#include "uqueue.h"
#include "ufsm.h"
#include "umap.h"
#include "usocket.h"

#endif /* PLATFORM_UTILS_H */
