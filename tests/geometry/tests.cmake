qx_add_test(tst_qxmath SOURCES tst_qxmath.cpp)
qx_add_test(tst_qxbezierpath SOURCES tst_qxbezierpath.cpp)
