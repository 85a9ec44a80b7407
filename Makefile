# Two commands do everything on a fresh Debian 12: `make demo` and `make check`.
.PHONY: help demo check soak bench format clean

help:
	@echo "make demo    install what is missing, build, replay a real capture"
	@echo "make check   install what is missing, build, run every test"
	@echo "make soak    the long sweeps: every failure at every call; minutes"
	@echo "make bench   measure, and draw the curves of docs/PERFORMANCE.md"
	@echo "make format  put all sources into the project's format"
	@echo "make clean   remove everything built"

demo:
	@scripts/install-dependencies demo
	@CONFIGURE_OPTIONS=-DINLINE_SERVICE_TESTS=OFF scripts/build release --target inlinectl
	@scripts/demo

check:
	@scripts/install-dependencies check
	@scripts/check

soak:
	@scripts/install-dependencies check
	@scripts/soak

bench:
	@scripts/install-dependencies bench
	@scripts/bench

format:
	@git ls-files -- '*.cpp' '*.h' '*.c' | xargs clang-format -i

clean:
	@rm -rf build
