// SPDX-License-Identifier: MIT
// Every line the core families log, exactly: applications watch for these texts.
#include "call_table.hpp"
#include "fail_alloc.hpp"

#include <ulist.h>
#include <uuniqueid.h>

#include <gtest/gtest.h>

namespace {

using pu::test::logged;

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
    const std::string uid = "basalt.utils.uidManager: ";
    pu::test::checkRows({
        {"registered", logged([] { uIdRegisterUniqueIdModule("cat", 0, 1); }),
         "0 " + uid +
             "uIdRegisterUniqueIdModule: module=[cat] with max id=[1] register to uniqueIdModule!"},
        {"refused registration", logged([] { uIdRegisterUniqueIdModule("cat 3", -1, 1); }), ""},
        {"last id", logged([] { uIdGetModuleAvailableUniqueId("cat"); }), ""},
        {"no id left", logged([] { uIdGetModuleAvailableUniqueId("cat"); }),
         "2 " + uid + "uIdGetManagerAvailableId: Module[cat] does not have any available id!"},
        {"unknown module", logged([] { uIdGetModuleAvailableUniqueId("no cat"); }),
         "2 " + uid +
             "uIdGetModuleAvailableUniqueId: module=[no cat] does not registered in uniqueModule."},
        {"null module", logged([] { uIdGetModuleAvailableUniqueId(nullptr); }),
         "2 " + uid +
             "uIdGetModuleAvailableUniqueId: module=[(null)] does not registered in uniqueModule."},
        {"no memory for a module", logged([] {
             const pu::test::FailAlloc fault(1);
             uIdRegisterUniqueIdModule("cat 2", 0, 1);
         }),
         "3 " + uid + "uIdRegisterUniqueIdModule: malloc error"},
        {"list with nodes", logged([] { withNode([](uList *list) { uListUninit(list); }); }),
         "3 basalt.utils.list: uListUninit: Uninit list that has nodes not free!"},
        {"no memory to clear a list", logged([] {
             withNode([](uList *list) {
                 const pu::test::FailAlloc fault(1);
                 uListClearWithNodeNoNeedFree(list);
             });
         }),
         "3 basalt.utils.list: uListSpecialClear: init list error!"},
    });
    uIdUnregisterUniqueIdModule("cat");
}

} // namespace
