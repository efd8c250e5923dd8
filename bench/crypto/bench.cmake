qx_add_benchmark(bench_crypto SOURCES bench_crypto.cpp LIBRARIES OpenSSL::Crypto)
