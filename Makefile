# The two commands of the README. Everything else goes through CMake presets.
.PHONY: test test-asan test-tsan deps build check-includes demo fuzz clean

deps:
	./scripts/install-deps

build: deps
	cmake --preset default
	cmake --build --preset default

# Includes that go against the link graph fail here, before anything is compiled.
check-includes: deps
	./scripts/check-includes

test: check-includes
	$(MAKE) --no-print-directory build
	ctest --preset default
	@if reason=$$(./scripts/vm/run-tests --check); then \
	  echo "ctest --test-dir build/default -L vm --output-on-failure"; \
	  ctest --test-dir build/default -L vm --output-on-failure; \
	else \
	  echo "make test: VM tests skipped: $$reason"; \
	fi
	./scripts/check-midi-library-standalone

test-asan: deps
	cmake --preset asan-ubsan
	cmake --build --preset asan-ubsan
	ctest --preset asan-ubsan

test-tsan: deps
	cmake --preset tsan
	cmake --build --preset tsan
	ctest --preset tsan

fuzz: deps
	cmake --preset fuzz
	cmake --build --preset fuzz

demo: build
	./scripts/demo

clean:
	rm -rf build
