# Velm Server. `make run` installs what is missing and runs the server; `make test` installs,
# builds and runs the whole suite (unit, integration and rig tests), once as a normal build and
# once under AddressSanitizer and UndefinedBehaviorSanitizer, then the portable tests in a build
# without a desktop backend.

WERROR ?= $(if $(CI),ON,OFF)
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 20
FUZZ_RUNS ?= 0
DEV := build/dev
ASAN := build/asan
NONE := build/none
RELEASE := build/release
FUZZ := build/fuzz
# Without a display the server runs on Qt's offscreen platform.
HEADLESS := $(if $(DISPLAY)$(WAYLAND_DISPLAY),,QT_QPA_PLATFORM=offscreen)
UNAME := $(shell uname -s)

.PHONY: all deps build build-asan test test-dev test-asan test-none test-desktops run install deb translations screenshots \
	bench fuzz fuzz-long format clean
PREFIX ?= /usr/local

all: build

deps:
	@scripts/deps

ifeq ($(UNAME),Darwin)
# On a Mac: Homebrew's Qt 5; the bundle is the program, the portable and backend tests run.
QT5_PREFIX := $(shell brew --prefix qt@5 2>/dev/null)
JOBS := $(shell sysctl -n hw.ncpu)
HEADLESS :=
MAC_CMAKE := -DCMAKE_PREFIX_PATH=$(QT5_PREFIX)
endif

$(DEV)/build.ninja:
	cmake -S . -B $(DEV) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVELM_WERROR=$(WERROR) $(MAC_CMAKE)

$(ASAN)/build.ninja:
	cmake -S . -B $(ASAN) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVELM_WERROR=$(WERROR) \
		-DVELM_SANITIZE=ON -DVELM_BUILD_BENCH=OFF

# The build without a desktop backend, configured with the desktop libraries out of sight (no
# pkg-config files, KWindowSystem's CMake package disabled), so that a dependency on them
# cannot creep into the portable layers.
HIDDEN := PKG_CONFIG_LIBDIR=$(CURDIR)/$(NONE)/no-pkg-config
$(NONE)/build.ninja:
	mkdir -p $(NONE)/no-pkg-config
	$(HIDDEN) cmake -S . -B $(NONE) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVELM_WERROR=$(WERROR) \
		-DVELM_PLATFORM=none -DVELM_BUILD_BENCH=OFF -DCMAKE_DISABLE_FIND_PACKAGE_KF5WindowSystem=ON

$(RELEASE)/build.ninja:
	cmake -S . -B $(RELEASE) -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELM_BUILD_TESTS=OFF

build: deps $(DEV)/build.ninja
	cmake --build $(DEV) -j $(JOBS)

build-asan: deps $(ASAN)/build.ninja
	cmake --build $(ASAN) -j $(JOBS)

ifeq ($(UNAME),Darwin)
test: build
	cd $(DEV) && ctest -L "portable|mac-logic" --output-on-failure --timeout 300

run: build
	"$(DEV)/src/shell/Velm Server.app/Contents/MacOS/Velm Server"
else
test: test-dev test-asan test-none

run: build
	$(HEADLESS) $(DEV)/src/shell/velm-server
endif

test-dev: build
	cd $(DEV) && ctest --output-on-failure --timeout 300

test-asan: build-asan
	cd $(ASAN) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:fast_unwind_on_malloc=0 \
		UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
		LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp \
		ctest --output-on-failure --timeout 600

# The portable tests (and the check of what their binaries link) in the build without a backend.
test-none: deps $(NONE)/build.ninja
	$(HIDDEN) cmake --build $(NONE) -j $(JOBS) --target portable_tests
	cd $(NONE) && ctest -L portable --output-on-failure --timeout 300

# Today's desktops: the project built in a Debian 13 root (made with debootstrap in
# build/desktops, kept, made afresh after a week) with its compiler and libraries, warnings as
# errors, and the Wayland window tests run there against sway 1.10, KWin 6.3 and labwc, with
# the Debian package installed into a clean Debian 13 root. Needs root; not part of `make test`.
test-desktops:
	@scripts/deps
	scripts/test-desktops build/desktops

# The program, its desktop entry, icons and translations under PREFIX (needs root for /usr/local).
install: deps $(RELEASE)/build.ninja
	cmake --build $(RELEASE) -j $(JOBS)
	cmake --install $(RELEASE) --prefix $(PREFIX)

# A Debian package of the release build: build/release/velm-server_<version>_<arch>.deb, for
# `sudo apt install ./build/release/velm-server_*.deb`.
deb: deps $(RELEASE)/build.ninja
	cmake --build $(RELEASE) -j $(JOBS)
	cd $(RELEASE) && cpack
	@ls $(RELEASE)/velm-server_*.deb

# Refreshes translations/*.ts from the code; translate what is new with Qt Linguist.
translations: build
	cmake --build $(DEV) --target update_translations

# Renders every window on a private desktop into docs/screenshots/ (needs root, like the rig).
screenshots: build
	scripts/screenshots $(DEV)

bench: deps $(RELEASE)/build.ninja
	cmake -S . -B $(RELEASE) -DVELM_BUILD_BENCH=ON >/dev/null
	cmake --build $(RELEASE) -j $(JOBS) --target bench_roundtrip bench_listing bench_icons \
		bench_idle bench_apps
	$(RELEASE)/bench/bench_roundtrip
	$(RELEASE)/bench/bench_listing
	$(RELEASE)/bench/bench_icons
	$(RELEASE)/bench/bench_idle
	scripts/bench-rig $(RELEASE)

fuzz:
	@scripts/deps --fuzz
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ) -G Ninja -DCMAKE_BUILD_TYPE=Debug \
		-DVELM_BUILD_FUZZ=ON -DVELM_BUILD_TESTS=OFF -DVELM_BUILD_BENCH=OFF \
		-DVELM_FUZZ_SECONDS=$(FUZZ_SECONDS) -DVELM_FUZZ_RUNS=$(FUZZ_RUNS)
	cmake --build $(FUZZ) -j $(JOBS)
	cd $(FUZZ) && ctest --output-on-failure

# Ten million inputs for each fuzzer, from the checked-in corpus (hours; not part of CI).
fuzz-long:
	$(MAKE) fuzz FUZZ_RUNS=10000000

format:
	git ls-files "*.cpp" "*.h" | xargs clang-format -i

clean:
	rm -rf build
