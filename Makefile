# Every target installs and builds what it needs.

.PHONY: help build demo demo-ble demo-ble-windows demo-cloud demo-windows check test soak stress \
	torture bench fuzz coverage mutation lint package test-packages reproducible clean

# What users get, without the tests.
linux_products = BUILD_TARGETS=products scripts/build.sh linux-release
windows_products = BUILD_TARGETS="products wine_port" scripts/build.sh windows-release

help:
	@echo "make build         library and tools for Linux and Windows"
	@echo "make demo          ask three control units through a simulated dongle"
	@echo "make demo-windows  the same with the DLL, under Wine"
	@echo "make demo-cloud    a dongle behind a relay, over TCP and TLS; the relay goes away and returns"
	@echo "make demo-ble      a dongle on Bluetooth LE, without a radio"
	@echo "make demo-ble-windows  the same with the DLL, under Wine"
	@echo "make check         after an edit: unit tests and quick conformance tests on Linux"
	@echo "make test          all tests, on both systems and under the sanitizers"
	@echo "make soak          all tests, SOAK_ROUNDS (5) times, with processors taken away at random"
	@echo "make stress        random calls, also under TSan, and a loaded relay: DPDU_STRESS_SECONDS (60) each"
	@echo "make torture       every allocation, input and output of eighteen sessions fails once"
	@echo "make bench         benchmarks"
	@echo "make fuzz          each fuzz target for FUZZ_SECONDS (60)"
	@echo "make coverage      lines, branches and functions of src that the tests execute"
	@echo "make mutation      unit tests against MUTANTS (340) changes of the library, one at a time"
	@echo "make lint          format, clang-tidy, cppcheck, GCC's analyser and includes"
	@echo "make package       Debian packages, Windows installer and zip in build/packages"
	@echo "make test-packages  installs and removes them in a bare Debian 12 and under Wine"
	@echo "make reproducible  builds everything twice and shows whether the bytes are the same"
	@echo "make clean         remove what was built, except build/deps"

build:
	@scripts/setup.sh linux windows
	@$(linux_products)
	@$(windows_products)

demo:
	@scripts/setup.sh linux
	@$(linux_products)
	@scripts/demo.sh linux

demo-cloud:
	@scripts/setup.sh linux
	@$(linux_products)
	@scripts/demo_cloud.sh

demo-ble:
	@scripts/setup.sh linux
	@$(linux_products)
	@BUILD_TARGETS="brennix-radio brennix-bluez" scripts/build.sh linux-release
	@scripts/demo_ble.sh linux

demo-ble-windows:
	@scripts/setup.sh linux windows
	@BUILD_TARGETS="brennix-radio brennix-bluez" scripts/build.sh linux-release
	@$(windows_products)
	@BUILD_TARGETS="brennix_bluetooth" scripts/build.sh windows-release
	@scripts/demo_ble.sh windows

demo-windows:
	@scripts/setup.sh linux windows
	@$(linux_products)
	@$(windows_products)
	@scripts/demo.sh windows

check:
	@scripts/setup.sh linux
	@scripts/check.sh

test:
	@scripts/setup.sh linux windows clang test
	@scripts/test.sh

soak:
	@scripts/setup.sh linux windows clang test
	@scripts/soak.sh $(or $(SOAK_ROUNDS),5)

stress:
	@scripts/setup.sh linux clang
	@scripts/stress.sh

torture:
	@scripts/setup.sh linux
	@scripts/torture.sh

bench:
	@scripts/setup.sh linux
	@BUILD_TARGETS=benchmarks scripts/build.sh linux-release
	@scripts/bench.sh

fuzz:
	@scripts/setup.sh linux clang
	@scripts/build.sh fuzz
	@scripts/fuzz.sh

coverage:
	@scripts/setup.sh linux coverage
	@scripts/coverage.sh

mutation:
	@scripts/setup.sh linux
	@scripts/mutation.py --count $(or $(MUTANTS),340)

lint:
	@scripts/setup.sh linux windows lint
	@scripts/build.sh linux-release
	@scripts/lint.sh

# What is compiled must not carry the time of the build either.
package:
	@scripts/setup.sh linux windows package
	@export SOURCE_DATE_EPOCH=$$(scripts/source_date.sh) && $(linux_products) && \
		$(windows_products) && scripts/package.sh

test-packages: package
	@scripts/test_packages.sh

# Each of the two builds sets itself up.
reproducible:
	@scripts/reproducible.sh

clean:
	@scripts/stop-wine.sh
	@find build -mindepth 1 -maxdepth 1 ! -name deps -exec rm -rf {} + 2>/dev/null || true
