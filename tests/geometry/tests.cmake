qx_add_test(tst_qxmath SOURCES tst_qxmath.cpp)
