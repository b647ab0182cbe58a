import os
import re

from conan import ConanFile
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load


class Clastool(ConanFile):
    name = "clastool"
    description = "Classifiers that decide by expected cost"
    license = "MIT"
    topics = ("classification", "machine-vision", "nearest-neighbors", "bayes")
    package_type = "library"
    settings = "os", "compiler", "build_type", "arch"
    options = {"shared": [True, False], "fPIC": [True, False]}
    default_options = {"shared": False, "fPIC": True}

    @property
    def _project(self):
        return os.path.join(self.recipe_folder, os.pardir, os.pardir)

    def set_version(self):
        header = load(self, os.path.join(self._project, "foundation", "include", "kt", "version.h"))
        self.version = ".".join(re.findall(r"^#define KT_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)$", header, re.MULTILINE))

    def export_sources(self):
        for name in ("CMakeLists.txt", "README.md", "CHANGELOG.md", "LICENSE", "SECURITY.md"):
            copy(self, name, self._project, self.export_sources_folder)
        for folder in ("cmake", "clss", "docs", "examples", "foundation", "include", "kit", "packaging"):
            copy(self, f"{folder}/*", self._project, self.export_sources_folder)

    def config_options(self):
        if self.settings.os == "Windows":
            del self.options.fPIC

    def configure(self):
        if self.options.shared:
            self.options.rm_safe("fPIC")

    def validate(self):
        check_min_cppstd(self, 17)

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["KT_BUILD_TESTS"] = False
        toolchain.cache_variables["KT_BUILD_EXAMPLES"] = False
        toolchain.generate()
        CMakeDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        copy(self, "LICENSE", self.source_folder, os.path.join(self.package_folder, "licenses"))
        CMake(self).install()

    def package_info(self):
        # The package's own CMake files know what keeps its classes loadable in static programs.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.builddirs = [os.path.join("lib", "cmake", "clastool")]
