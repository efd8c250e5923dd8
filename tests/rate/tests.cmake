qx_add_test(tst_qxrate SOURCES tst_qxrate.cpp RateTestSupport.h)
qx_add_test(tst_qxratelookup SOURCES tst_qxratelookup.cpp RateTestSupport.h)
qx_add_test(tst_qxrateprompt SOURCES tst_qxrateprompt.cpp RateTestSupport.h)
