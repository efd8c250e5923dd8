qx_add_test(tst_qxtool SOURCES tst_qxtool.cpp)
