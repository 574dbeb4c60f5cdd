// SPDX-License-Identifier: MIT
// Every line the core families log, exactly: applications watch for these texts.
#include "call_table.hpp"
#include "fail_alloc.hpp"

#include <ulist.h>
#include <uuniqueid.h>

#include <gtest/gtest.h>

namespace {

// A list with one node, released whatever the row did to it.
void withNode(void (*use)(uList *)) {
    int element = 0;
    uList *list = uListInit(0);
    uListAppend(list, &element);
    use(list);
    uListClearWithNodeNoNeedFree(list);
    uListUninit(list);
}

TEST(LogCatalogue, CoreMessages) {
    const char *uid = "basalt.utils.uidManager", *list = "basalt.utils.list";
    pu::test::checkLogRows({
        PU_LOG_ROW(
            uIdRegisterUniqueIdModule("cat", 0, 1), 0, uid,
            "uIdRegisterUniqueIdModule: module=[cat] with max id=[1] register to uniqueIdModule!"),
        PU_LOG_ROW((uIdGetModuleAvailableUniqueId("cat"), uIdGetModuleAvailableUniqueId("cat")), 2,
                   uid, "uIdGetManagerAvailableId: Module[cat] does not have any available id!"),
        PU_LOG_ROW(
            uIdGetModuleAvailableUniqueId("no cat"), 2, uid,
            "uIdGetModuleAvailableUniqueId: module=[no cat] does not registered in uniqueModule."),
        PU_LOG_ROW(
            uIdGetModuleAvailableUniqueId(nullptr), 2, uid,
            "uIdGetModuleAvailableUniqueId: module=[(null)] does not registered in uniqueModule."),
        PU_LOG_ROW((pu::test::FailAlloc(1), uIdRegisterUniqueIdModule("cat 2", 0, 1)), 3, uid,
                   "uIdRegisterUniqueIdModule: malloc error"),
        PU_LOG_ROW(withNode([](uList *l) { uListUninit(l); }), 3, list,
                   "uListUninit: Uninit list that has nodes not free!"),
        PU_LOG_ROW(withNode([](uList *l) {
                       pu::test::FailAlloc fault(1);
                       uListClearWithNodeNoNeedFree(l);
                   }),
                   3, list, "uListSpecialClear: init list error!"),
    });
    uIdUnregisterUniqueIdModule("cat");
}

} // namespace
