qx_add_test(tst_qxarray SOURCES tst_qxarray.cpp)
qx_add_test(tst_qxdictionary SOURCES tst_qxdictionary.cpp)
qx_add_test(tst_qxjson SOURCES tst_qxjson.cpp)
qx_add_test(tst_qxsortedlist SOURCES tst_qxsortedlist.cpp)
