qx_add_test(tst_qxbase64 SOURCES tst_qxbase64.cpp)
