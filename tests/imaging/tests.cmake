qx_add_test(tst_qxpixelkernels SOURCES tst_qxpixelkernels.cpp)
# The same suite on the portable code path.
add_test(NAME tst_qxpixelkernels_generic COMMAND tst_qxpixelkernels)
set_tests_properties(tst_qxpixelkernels_generic PROPERTIES TIMEOUT 120
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;XDG_RUNTIME_DIR=${QX_TEST_RUNTIME_DIR};QX_PIXEL_KERNELS=generic")
qx_add_test(tst_qximage SOURCES tst_qximage.cpp)
qx_add_test(tst_qxblureffect SOURCES tst_qxblureffect.cpp)
qx_add_test(tst_qxthreepartimage SOURCES tst_qxthreepartimage.cpp)
qx_add_test(tst_qxcolor SOURCES tst_qxcolor.cpp)
qx_add_test(tst_qximagingtool SOURCES tst_qximagingtool.cpp)
