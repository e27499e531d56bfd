# Quick start: `make run` and `make test` set up a fresh Debian 12 machine (installing
# missing packages with apt-get), configure, build, then run.
BUILD ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
STACK_BUILD ?= build-stack
JIT_BUILD ?= build-jit
ARM64_BUILD ?= build-arm64
WERROR ?= OFF
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
DEBS := cmake g++ make pkg-config lua5.1 liblua5.1-0-dev libglib2.0-dev libjansson-dev \
        lua-busted lua-cjson libmicrohttpd-dev ccache curl
LINT_DEBS := clang-tidy cppcheck lua-check
SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

# Every build here goes through ccache once it is installed: CI builds the same sources
# several ways (plain, LuaJIT, sanitizers, arm64, fuzz), and a rerun should not pay again.
CCACHE := $(shell command -v ccache 2>/dev/null)
ifneq ($(CCACHE),)
export CMAKE_C_COMPILER_LAUNCHER ?= $(CCACHE)
export CMAKE_CXX_COMPILER_LAUNCHER ?= $(CCACHE)
endif

.PHONY: musl-check real-ubox-check install deb package install-test lint docs-keys fuzz all setup setup-arm64 configure build run test asan-test tsan-test test-luajit gateway-check real-libubox real-uci-check test-arm64 format-check stack-check bench console console-test clean

all: build

# Installs the Debian packages of $(1) that are missing.
define install_missing
	@missing=$$(for p in $(1); do \
	    dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; \
	  done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing missing packages:" $$missing; \
	  $(SUDO) apt-get -o DPkg::Lock::Timeout=600 update -qq && \
	  $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 install -y -qq $$missing; \
	fi
endef

setup:
	$(call install_missing,$(DEBS))

configure: setup
	cmake -S . -B $(BUILD) -DVELCONFIG_WERROR=$(WERROR)

build: configure
	cmake --build $(BUILD) -j$(JOBS)

# Installs the tools under PREFIX (DESTDIR=... stages them elsewhere, as packagers do).
PREFIX ?= /usr/local
install: setup
	cmake -S . -B $(BUILD) -DVELCONFIG_WERROR=$(WERROR) -DCMAKE_INSTALL_PREFIX=$(PREFIX)
	cmake --build $(BUILD) -j$(JOBS)
	cmake --install $(BUILD)

# The Debian package of the PC tools (checked with lintian) and the gateway archive
# (the aarch64 module and the tool, laid out as on the gateway), from build folders of
# their own: the package installs under /usr.
PKG_BUILD ?= build-pkg
GW_PKG_BUILD ?= build-pkg-gateway
deb: setup
	cmake -S . -B $(PKG_BUILD) -DCMAKE_INSTALL_PREFIX=/usr -DVELCONFIG_WERROR=$(WERROR)
	cmake --build $(PKG_BUILD) -j$(JOBS)
	cd $(PKG_BUILD) && rm -f velconfig_*.deb && cpack -G DEB

package: deb setup-arm64
	$(call install_missing,lintian)
	lintian --fail-on error --info $(PKG_BUILD)/velconfig_*.deb
	JOBS=$(JOBS) tools/package/gateway.sh $(PKG_BUILD)/keys.json $(GW_PKG_BUILD)

# The tools as installed, by `make install` and from the package, with the source and
# build trees out of reach.
install-test: build deb
	$(call install_missing,curl)
	tools/package/install-test.sh $(BUILD) $(PKG_BUILD)/velconfig_$$($(BUILD)/velconfig --version | cut -d' ' -f2)_$$(dpkg --print-architecture).deb

run: build
	$(BUILD)/velconfig get allInfo

test: build
	cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

# The web console on http://127.0.0.1:$(PORT)/ over the simulated gateway.
PORT ?= 8080
console: build
	$(BUILD)/velconfig serve --port $(PORT)

# The console in headless Chromium (Debian's chromium, driven by playwright-core).
console-test: build
	@command -v chromium >/dev/null || { $(SUDO) apt-get update -qq && \
	  $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends chromium; }
	cd tests/browser && npm ci --no-audit --no-fund --silent
	cd tests/browser && VELCONFIG_TOOL=$(CURDIR)/$(BUILD)/velconfig VELCONFIG_SCREENSHOT_DIR=$(CURDIR)/$(BUILD)/screenshots npm test

# Rewrites the key tables of docs/keys.md from the key catalogue the build generates.
docs-keys: build
	lua5.1 tools/catalogue/keys_table.lua $(BUILD)/keys.json docs/keys.md

# libFuzzer over every target for FUZZ_SECONDS seconds each (clang from Debian).
FUZZ_SECONDS ?= 20
fuzz: setup
	@command -v clang++ >/dev/null && dpkg -s libclang-rt-14-dev >/dev/null 2>&1 || { $(SUDO) apt-get update -qq && \
	  $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq clang libclang-rt-14-dev; }
	FUZZ_SECONDS=$(FUZZ_SECONDS) fuzz/run.sh

# The same suite with AddressSanitizer, UndefinedBehaviorSanitizer and LeakSanitizer.
asan-test: setup
	cmake -S . -B $(ASAN_BUILD) -DVELCONFIG_SANITIZE=ON -DVELCONFIG_WERROR=ON -DCMAKE_BUILD_TYPE=Debug
	cmake --build $(ASAN_BUILD) -j$(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j$(JOBS)

# The tests that call the module from several threads at once (label "threads"),
# built with GCC's ThreadSanitizer; any report fails the run. The kernel's full
# address-space randomisation can collide with the sanitizer's fixed shadow memory,
# so the run goes without it (setarch -R).
tsan-test: setup
	$(call install_missing,libtsan2)
	cmake -S . -B $(TSAN_BUILD) -DVELCONFIG_TSAN=ON -DVELCONFIG_WERROR=ON
	cmake --build $(TSAN_BUILD) -j$(JOBS) --target velconfig easymesh_export
	cd $(TSAN_BUILD) && TSAN_OPTIONS="halt_on_error=1 exitcode=66" \
	  setarch $$(uname -m) -R ctest --output-on-failure -L threads

# The same suite with the module built against LuaJIT 2.1 and busted run by luajit.
test-luajit: setup
	$(call install_missing,luajit libluajit-5.1-dev)
	cmake -S . -B $(JIT_BUILD) -DVELCONFIG_LUAJIT=ON -DVELCONFIG_WERROR=$(WERROR)
	cmake --build $(JIT_BUILD) -j$(JOBS)
	cd $(JIT_BUILD) && ctest --output-on-failure -j$(JOBS)

# Builds the module for the gateway against a separately built libcapi3.so.
gateway-check: setup
	tools/gateway-check.sh

# OpenWrt's libubox and uci built from the pinned snapshots in ../shared/deps into
# build-deps/prefix (never into the system); real-libubox prints that prefix. Both
# skip with a notice when the snapshots are missing, and fail with CI=true.
real-libubox:
	@tools/deps/build-libubox.sh

# The module's uci paths with OpenWrt's uci in place of the project's (with an empty
# environment too), and the project's uci compared with it command by command.
real-uci-check: setup
	BUILD=$(BUILD) tools/deps/real-uci-check.sh

# The 64-bit ARM build (cmake/aarch64-linux-gnu.cmake): cross-builds the module, the
# simulator and the gateway-mode link check, then runs the suite with an arm64 Lua 5.1
# under qemu-aarch64. Debian's :arm64 development packages install beside the build
# machine's own (multiarch); --no-install-recommends adds only what they depend on.
ARM64_DEBS := g++-aarch64-linux-gnu qemu-user liblua5.1-0-dev:arm64 libglib2.0-dev:arm64 \
              libjansson-dev:arm64 libmicrohttpd-dev:arm64

setup-arm64: setup
	@dpkg --print-foreign-architectures | grep -qx arm64 || $(SUDO) dpkg --add-architecture arm64; \
	missing=$$(for p in $(ARM64_DEBS); do \
	    dpkg-query -W -f='$${Status}\n' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; \
	  done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing missing packages:" $$missing; \
	  $(SUDO) apt-get -o DPkg::Lock::Timeout=600 update -qq && \
	  $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 install -y -qq --no-install-recommends $$missing; \
	fi

test-arm64: setup-arm64
	BUILD_ARM64=$(ARM64_BUILD) tools/arm64-test.sh

# The gateway's own stack (docs/building.md, "The gateway's own stack"): the module
# cross-built for aarch64-linux-musl with the Zig compiler from npm, and the module
# built and run against libubox from ../shared/deps. Without ../shared/deps the
# libubox check says so and skips (with CI=true it fails).
musl-check: setup-arm64
	tools/musl-build.sh

real-ubox-check: setup
	JOBS=$(JOBS) tools/deps/real-ubox-check.sh

# Static checks: the ownership and layering rules, clang-tidy, cppcheck and luacheck
# over the whole tree (tools/lint.sh).
lint: setup
	$(call install_missing,$(LINT_DEBS))
	tools/lint.sh

format-check:
	@command -v clang-format >/dev/null || { $(SUDO) apt-get update -qq && $(SUDO) apt-get install -y -qq clang-format; }
	git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

# The module's stack frames and call chains against their budgets (docs/performance.md, Stack).
# The frame sizes come from files the compiler writes beside each object (.su, .ci),
# which a compiler cache does not reproduce, so this build always compiles.
stack-check: setup
	env -u CMAKE_C_COMPILER_LAUNCHER -u CMAKE_CXX_COMPILER_LAUNCHER \
	  cmake -S . -B $(STACK_BUILD) -DVELCONFIG_STACK_USAGE=ON -DVELCONFIG_WERROR=$(WERROR)
	CCACHE_DISABLE=1 cmake --build $(STACK_BUILD) --target stack_check -j$(JOBS)

bench: setup
	@command -v valgrind >/dev/null || { $(SUDO) apt-get update -qq && $(SUDO) apt-get install -y -qq valgrind; }
	bench/run.sh

clean:
	rm -rf tests/browser/node_modules $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(STACK_BUILD) $(JIT_BUILD) $(ARM64_BUILD) build-fuzz build-gw build-capi3 build-bench build-lint build-musl build-ubox build-deps
