# The two commands of the README: `make run` and `make test`.
# Both install what is missing from Debian, configure, build and run; both can be repeated.

PKGS      := cmake ninja-build g++ make pkg-config libgtest-dev libxml2-dev libpugixml-dev qtbase5-dev gdal-bin xvfb xdotool xauth python3 python3-dev python3-pyqt5 python3-gdal python3-qgis python3-mock libproj-dev libsqlite3-dev libzip-dev zip sqlite3 libsqlite3-mod-spatialite libpq-dev postgresql-15 postgresql-client-15 postgresql-15-postgis-3
FUZZ_PKGS := clang libclang-rt-14-dev
BUILD     ?= build
JOBS      ?= $(shell nproc)
SAMPLE    ?= samples/kpt10_sample.xml
PREFIX    ?= /usr/local

SUDO := $(shell [ "$$(id -u)" -eq 0 ] || echo sudo)

.PHONY: deps run test build install plugin sanitize fuzz-deps fuzz bench-xml clean

define install_missing
	@missing=$$(for p in $(1); do dpkg -s $$p >/dev/null 2>&1 || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing:" $$missing; \
	  $(SUDO) apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive $(SUDO) apt-get install -y -qq --no-install-recommends $$missing >/dev/null; \
	fi
endef

deps:
	$(call install_missing,$(PKGS))

$(BUILD)/build.ninja: | deps
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Release

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

run: build
	$(BUILD)/bin/tmimport $(SAMPLE) -o $(BUILD)/sample-output
	@ls $(BUILD)/sample-output

# PREFIX/lib/tmMiniImport holds the programs, the module and the data folders;
# PREFIX/bin/tmimport and PREFIX/lib/python3/dist-packages/tmMiniImportLib.abi3.so link to it.
install: build
	cmake --install $(BUILD) --prefix "$(PREFIX)"

# The QGIS plugin as a zip for "Install from ZIP": BUILD/tmMiniImport.zip.
plugin: build
	scripts/make-plugin $(BUILD)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The whole suite under AddressSanitizer and UndefinedBehaviorSanitizer.
sanitize: deps
	cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTM_SANITIZE=ON -DTM_BENCH=OFF
	cmake --build build-asan -j $(JOBS)
	cd build-asan && ctest --output-on-failure -j $(JOBS)

fuzz-deps: deps
	$(call install_missing,$(FUZZ_PKGS))

# Runs every fuzz target for FUZZ_SECONDS each (default 600).
fuzz: fuzz-deps
	scripts/run-fuzzers $(FUZZ_SECONDS)

bench-xml: build
	bench/run-xml

clean:
	rm -rf $(BUILD) build-asan build-fuzz
