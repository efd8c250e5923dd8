qx_add_test(tst_qxpropertylist SOURCES tst_qxpropertylist.cpp)
qx_add_test(tst_qxencryption SOURCES tst_qxencryption.cpp LIBRARIES OpenSSL::Crypto)
