qx_add_test(tst_qxstring SOURCES tst_qxstring.cpp)
qx_add_test(tst_qxformatters SOURCES tst_qxformatters.cpp)
