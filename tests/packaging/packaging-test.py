"""Takes the steps that OpenEmbedded and Buildroot take with the recipe and the package of packaging/,
with their variables, and looks at what comes out as they do. Neither of them is run.

    packaging-test.py --source DIR --version VERSION [--work DIR --sysroot DIR ...]
"""
import argparse
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tarfile

from recipe import Recipe

HERE = pathlib.Path(__file__).parent
ANSWER = "answer = 42\ncaptured: OxKeyValues.cpp: getKeyValue"

# What a recipe and a package have to depend on for what pkg-config finds.
PROVIDERS = {
    "glib-2.0.pc": {"glib-2.0", "libglib2"},
    "libxml-2.0.pc": {"libxml2"},
    "libxslt.pc": {"libxslt"},
    "luajit.pc": {"luajit"},
    "lua.pc": {"lua"},
}

# What a platform that this plays has.
PLATFORM = {
    "libraries": "played-dlog;played-system-info",
    "packages": "played-platform",
    "namespace": "example.org",
}
STAND_INS = {"libraries": "", "packages": "", "namespace": ""}

# As BitBake's own files have it.
BITBAKE = {
    "prefix": "/usr",
    "bindir": "/usr/bin",
    "libdir": "/usr/lib",
    "includedir": "/usr/include",
    "datadir": "/usr/share",
    "docdir": "/usr/share/doc",
    "PACKAGES": "${PN}-src ${PN}-dbg ${PN}-staticdev ${PN}-dev ${PN}-doc ${PN}",
    "FILES:oxil-src": "/usr/src/debug",
    "FILES:oxil-dbg": "/usr/lib/debug",
    "FILES:oxil-staticdev": "${libdir}/*.a ${libdir}/${BPN}/*.a",
    "FILES:oxil-dev": "${includedir} ${libdir}/lib*.so ${libdir}/pkgconfig ${datadir}/pkgconfig"
                      " ${libdir}/cmake ${datadir}/cmake",
    "FILES:oxil-doc": "${docdir} ${datadir}/man ${datadir}/info",
    "FILES:oxil": "${bindir}/* ${libdir}/lib*.so.* ${datadir}/${BPN} ${libdir}/${BPN}/*",
    "RDEPENDS:oxil-dev": "${PN}",
    "RDEPENDS:oxil-staticdev": "${PN}-dev",
    "RDEPENDS:oxil": "",
}

problems = []


def expect(holds, problem):
    if not holds:
        problems.append(problem)


def run(command, **options):
    """Runs it, and gives what it printed; it has to succeed."""
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                            check=False, **options)
    if result.returncode != 0:
        sys.exit(f"{command}\nended with {result.returncode}:\n{result.stdout}")
    return result.stdout


# ---- What stands there ---------------------------------------------------------------------------


def read_recipe(settings):
    (file,) = (options.source / "packaging/openembedded").glob("*.bb")
    return Recipe(file, BITBAKE | settings)


def check_recipe():
    recipe = read_recipe({})
    expect(recipe.get("PV") == options.version,
           f"the recipe's file says version {recipe.get('PV')}, the project {options.version}")
    licence, _, md5 = recipe.get("LIC_FILES_CHKSUM").partition(";md5=")
    licence = options.source / licence.removeprefix("file://")
    expect(hashlib.md5(licence.read_bytes()).hexdigest() == md5, f"{licence} is not that of the recipe")
    expect({"cmake", "pkgconfig"} <= set(recipe.classes), f"the recipe inherits {recipe.classes}")


def read_package(names, settings):
    """Values of variables of Buildroot's package, once settings of Buildroot's are what they are."""
    external = options.source / "packaging/buildroot"
    command = ["make", "--no-print-directory", "-f", HERE / "buildroot/package.mk",
               f"FILE={external}/external.mk", f"BR2_EXTERNAL_OXIL_PATH={external}"]
    command += [f"{name}={value}" for name, value in settings.items()]
    environment = {name: value for name, value in os.environ.items() if not name.startswith("MAKE")}
    return [run([*command, name], env=environment).strip() for name in names]


def check_package():
    site, version, licence = read_package(["OXIL_SITE", "OXIL_VERSION", "OXIL_LICENSE_FILES"], {})
    expect(pathlib.Path(site).resolve() == options.source.resolve(), f"OXIL_SITE is {site}")
    expect(version == options.version, f"the package's version is {version}, not {options.version}")

    folder = options.source / "packaging/buildroot"
    for kind, digest, name in re.findall("^(sha256)  (.*)  (.*)$",
                                         (folder / "package/oxil/oxil.hash").read_text(), re.M):
        hashed = hashlib.new(kind, (options.source / name).read_bytes()).hexdigest()
        expect(hashed == digest, f"{name} is not that of the package")
        expect(name == licence, f"{name} is hashed, and {licence} is the licence")

    expect("name: OXIL\n" in (folder / "external.desc").read_text(), "external.desc has another name")
    menu = (folder / "Config.in").read_text()
    menus = [menu]
    for file in re.findall(r'^source "\$BR2_EXTERNAL_OXIL_PATH/(.*)"$', menu, re.M):
        menus.append((folder / file).read_text())
    asked = set(re.findall(r"^config (BR2_PACKAGE_OXIL\w*)$", "\n".join(menus), re.M))
    used = set(re.findall(r"\((BR2_PACKAGE_OXIL\w*)\)", (folder / "package/oxil/oxil.mk").read_text()))
    expect(asked == used | {"BR2_PACKAGE_OXIL"}, f"Config.in asks for {asked}, oxil.mk uses {used}")


# ---- Building ------------------------------------------------------------------------------------


def prepare():
    """What both systems have made before it is the library's turn."""
    shutil.rmtree(options.work, ignore_errors=True)
    native = options.work / "native/usr/bin"
    native.mkdir(parents=True)
    for tool in ("pkg-config", "ninja"):
        (native / tool).symlink_to(shutil.which(tool))
    prefix = options.cxx_compiler.name.removesuffix("g++")
    for tool in ("ar", "nm", "ld", "objcopy", "objdump", "ranlib", "readelf", "strip"):
        (native / (prefix + tool)).symlink_to(shutil.which(prefix + tool))
    # Compilers go through the systems' own ccache, under their own names.
    for compiler in (options.c_compiler, options.cxx_compiler):
        (native / compiler.name).symlink_to(shutil.which("ccache") or compiler.resolve())
    for tool in ("objcopy", "readelf", "strip"):
        setattr(options, tool, native / (prefix + tool))
    options.native = native

    archive = options.work / f"oxil-{options.version}.tar.gz"
    with tarfile.open(archive, "w:gz", compresslevel=1) as tar:
        for path in options.source.iterdir():
            if not path.name.startswith((".", "build")):
                tar.add(path, f"oxil-{options.version}/{path.name}")
    options.archive = archive


def copy_sysroot(target):
    linked = subprocess.run(["cp", "-al", options.sysroot, target], stderr=subprocess.DEVNULL,
                            check=False)
    if linked.returncode != 0:  # it lies on another disk
        shutil.rmtree(target, ignore_errors=True)
        run(["cp", "-a", options.sysroot, target])


def make_sysroot(target, dependencies):
    """A sysroot in which pkg-config finds, of what the library needs, what is depended on."""
    copy_sysroot(target)
    shutil.rmtree(target / "usr/bin")  # programs for the device are in no such sysroot
    there = target / "usr/lib" / options.library_architecture / "pkgconfig"
    found = target / "usr/lib/pkgconfig"
    found.mkdir(exist_ok=True)
    for file in there.glob("*.pc"):
        if file.name not in PROVIDERS and not file.name.startswith("lua"):
            shutil.copy(file, found)
    for name, providers in PROVIDERS.items():
        if providers & set(dependencies):
            # Whatever the interpreter is called there, here it is Debian's Lua 5.1.
            shutil.copy(there / ("lua5.1.pc" if name.startswith("lua") else name), found / name)
    if PLATFORM["packages"] in dependencies:
        for library, source in (("played-dlog", "dlog"), ("played-system-info", "system_info")):
            run([options.cxx_compiler, f"--sysroot={target}", "-shared", "-fPIC",
                 f"-Wl,-soname,lib{library}.so", "-o", target / f"usr/lib/lib{library}.so",
                 options.source / f"tests/device/platform/{source}.cpp"])


def make_environment(sysroot, variables):
    environment = {name: value for name, value in os.environ.items()
                   if name == "HOME" or name.startswith("CCACHE_")}
    return environment | variables | {
        "PATH": f"{options.native}:{options.cxx_compiler.parent}:/usr/bin:/bin",
        "LC_ALL": "C.UTF-8",
        "SOURCE_DATE_EPOCH": "1700000000",
        "TARGET_ARCH": options.processor,
        "CC": str(options.native / options.c_compiler.name),
        "CXX": str(options.native / options.cxx_compiler.name),
        "PKG_CONFIG_SYSROOT_DIR": str(sysroot),
        "PKG_CONFIG_LIBDIR": f"{sysroot}/usr/lib/pkgconfig",
    }


def unpack(target):
    with tarfile.open(options.archive) as tar:
        tar.extractall(target)
    return target / f"oxil-{options.version}"


def offline():
    """What a command begins with that is to have no network."""
    for prefix in (["unshare", "--net"], ["unshare", "--map-current-user", "--net"]):
        if subprocess.run([*prefix, "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0:
            return prefix
    print("The network could not be taken away: unshare is not allowed to.")
    return []


def shell(text, environment):
    """As a system's step does, with whatever characters it has put into the text."""
    return run([*offline(), "sh", "-ec", text], env=environment, cwd=options.work)


def snapshot(folder):
    return {path: path.lstat().st_mtime_ns for path in folder.rglob("*")}


def configure(arguments, build, conf_options, environment):
    said = shell(f"{options.cmake} -G Ninja {arguments} {conf_options}", environment)
    _, _, unused = said.partition("not used by the project:")
    wrong = set(re.findall(r"^    (\w+)$", unused, re.M)) & set(re.findall(r"-D(\w+)", conf_options))
    if wrong:
        sys.exit(f"no options of the project: {', '.join(sorted(wrong))}")
    expect("ccache" not in (build / "CMakeFiles/rules.ninja").read_text(), "it looks for ccache itself")


# ---- What comes out ------------------------------------------------------------------------------


def files_of(folder):
    """Files and links below the folder, by the path they have on the device."""
    return {f"/{path.relative_to(folder)}": path for path in folder.rglob("*")
            if path.is_symlink() or not path.is_dir()}


def is_elf(path):
    return not path.is_symlink() and path.read_bytes()[:4] == b"\x7fELF"


def dynamic_entries(path, tag):
    said = run([options.readelf, "-d", "-W", path])
    return re.findall(rf"\({tag}\).*\[(.*)\]", said)


def check_paths(files):
    """Nothing tells where it was built: neither this folder's name nor the sysroot's."""
    for name, path in files.items():
        content = os.readlink(path).encode() if path.is_symlink() else path.read_bytes()
        for folder in (options.work, options.source, options.sysroot):
            expect(str(folder).encode() not in content, f"{name} tells of {folder}")


def check_libraries(files):
    libraries = {name: path for name, path in files.items() if is_elf(path)}
    expect(libraries, "there is no library")
    for name, path in libraries.items():
        (soname,) = dynamic_entries(path, "SONAME")
        link = files.get(f"/usr/lib/{soname}")
        expect(link and link.is_symlink() and os.readlink(link) == path.name,
               f"{name} is called {soname}, which is no link to it")
        expect(pathlib.PurePath(name).match("/usr/lib/lib*.so.*"), f"{name} is out of place")
        # The stand-ins lie beside the library.
        search = dynamic_entries(path, "(?:RPATH|RUNPATH)")
        expect(search in ([], ["$ORIGIN"]), f"{name} looks for others in {search}")
        dynamic = run([options.readelf, "-d", "-W", path])
        expect("TEXTREL" not in dynamic, f"{name} has to be relocated in its code")
        expect("NOW" in dynamic, f"{name} was linked without the system's options")


def check_platform(library, settings):
    """It takes logger and system information from where it was told to."""
    needed = dynamic_entries(library, "NEEDED")
    wanted = settings["libraries"].split(";") if settings["libraries"] else ["oxil-platform"]
    for name in wanted:
        expect(any(entry.startswith(f"lib{name}.so") for entry in needed),
               f"{library.name} needs {needed}, and nothing called {name}")
    expect(bool(settings["namespace"]) == (b"example.org" in library.read_bytes()),
           f"{library.name} asks the platform with other keys")


def build_applications(work, toolchain, sysroot, runtime, environment):
    """As another recipe or package does it, by pkg-config and with CMake; runs what the device has."""
    consumer = options.source / "tests/install/consumer"
    shell(f"$CXX --sysroot={sysroot} -std=c++17 {consumer}/main.cpp"
          f" $(pkg-config --cflags --libs oxil) -o {work}/application", environment)
    shell(f"{options.cmake} -G Ninja -S {consumer} -B {work}/consumer -DCMAKE_TOOLCHAIN_FILE={toolchain}"
          f" -DCMAKE_MAKE_PROGRAM={options.native}/ninja", environment)
    shell(f"{options.cmake} --build {work}/consumer", environment)
    for program in (work / "application", work / "consumer/consumer"):
        said = run(["env", f"LD_LIBRARY_PATH={runtime}/usr/lib:{sysroot}/usr/lib", *options.emulator,
                    program])
        expect(said.startswith(ANSWER), f"{program} printed:\n{said}")


# ---- OpenEmbedded --------------------------------------------------------------------------------


def split_debug(files):
    """Moves what a debugger reads out of each library, as packages get it."""
    for path in list(files.values()):
        if is_elf(path):
            sections = run([options.readelf, "-S", "-W", path])
            expect(".debug_info" in sections, f"{path} was stripped before its package is made")
            debug = path.parent / ".debug" / path.name
            debug.parent.mkdir(exist_ok=True)
            run([options.objcopy, "--only-keep-debug", path, debug])
            run([options.strip, "--strip-unneeded", "--remove-section=.comment",
                 "--remove-section=.note", path])
            run([options.objcopy, f"--add-gnu-debuglink={debug}", path])


def split_packages(recipe, image):
    """Each file's package: the first whose list has it, or a folder that it is in."""
    packages = {name: {} for name in recipe.get("PACKAGES").split()}
    for file, path in sorted(files_of(image).items()):
        folders = [pathlib.PurePath(file), *pathlib.PurePath(file).parents]
        owners = [name for name in packages
                  if any(folder.match(pattern) for folder in folders
                         for pattern in recipe.get(f"FILES:{name}").split())]
        if "/.debug/" in file:
            owners = ["oxil-dbg"]
        expect(owners, f"{file} is installed, and in no package")
        if owners:
            packages[owners[0]][file] = path
    return packages


def check_packages(packages):
    for package, files in packages.items():
        for file, path in files.items():
            if package != "oxil-dev":
                expect(not (path.is_symlink() and file.endswith(".so")),
                       f"{package} has {file}, which programs are linked with")
            if package not in ("oxil", "oxil-dbg"):
                expect(not is_elf(path), f"{package} has the library {file}")
            if package != "oxil-staticdev":
                expect(not file.endswith(".a"), f"{package} has the archive {file}")
    for package, file in (("oxil", options.library),
                          ("oxil", "/usr/lib/liboxil.so.0"),
                          ("oxil-dev", "/usr/lib/liboxil.so"),
                          ("oxil-dev", "/usr/include/oxil/Oxil.h"),
                          ("oxil-dev", "/usr/lib/pkgconfig/oxil.pc"),
                          ("oxil-staticdev", "/usr/lib/liboxil-testing.a"),
                          ("oxil-doc", "/usr/share/doc/oxil/oxil.spdx.json"),
                          ("oxil-dbg", f"/usr/share/gdb/auto-load{options.library}-gdb.py")):
        expect(file in packages[package], f"{package} has no {file}, but {sorted(packages[package])}")
    expect(all("/lib/lib" in file for file in packages["oxil"]),
           f"for a device there is more than libraries: {sorted(packages['oxil'])}")
    for file in packages["oxil-dev"]:
        if file.endswith(".pc"):
            expect("\nprefix=/usr\n" in "\n" + packages["oxil-dev"][file].read_text(),
                   f"{file} has a prefix that a sysroot can't be put in front of")


def install_packages(recipe, packages, name, target):
    """Installs it, with the packages that it depends on."""
    names = [name]
    installed = []
    while names:
        name = names.pop()
        if name not in installed:
            installed.append(name)
            names += recipe.get(f"RDEPENDS:{name}").split()
            for file, path in packages[name].items():
                (target / file[1:]).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(path, target / file[1:], follow_symlinks=False)


def test_openembedded(platform):
    work = options.work / "openembedded"
    shutil.rmtree(work, ignore_errors=True)
    image, build, sysroot = work / "image", work / "build", work / "recipe-sysroot"
    recipe = read_recipe({
        "D": str(image),
        "OXIL_PLATFORM_LIBRARIES": platform["libraries"],
        "OXIL_PLATFORM_RECIPES": platform["packages"],
        "OXIL_FEATURE_NAMESPACE": platform["namespace"],
    })
    expect(recipe.get("SRC_URI") == f"file://{options.archive.name}",
           f"SRC_URI is {recipe.get('SRC_URI')}, not {options.archive.name}")
    source = unpack(work)
    make_sysroot(sysroot, recipe.get("DEPENDS").split())

    debugged = f"/usr/src/debug/{recipe.get('PN')}/{recipe.get('PV')}"
    mapped = " ".join(f"-ffile-prefix-map={old}={new}" for old, new in (
        (source, debugged), (build, debugged), (sysroot, ""), (options.native.parents[1], "")))
    flags = f"-O2 -g -pipe {mapped}"
    environment = make_environment(sysroot, {
        "STAGING_DIR_HOST": str(sysroot),
        "STAGING_DIR_NATIVE": str(options.native.parents[1]),
        "TOOLCHAIN_OPTIONS": f"--sysroot={sysroot}",
        "CFLAGS": flags,
        "CXXFLAGS": flags,
        "LDFLAGS": f"-Wl,-O1 -Wl,--hash-style=gnu -Wl,--as-needed -Wl,-z,relro,-z,now {mapped}",
        "PKG_CONFIG_DISABLE_UNINSTALLED": "yes",
        "PKG_CONFIG_SYSTEM_INCLUDE_PATH": "/usr/include",
        "PKG_CONFIG_SYSTEM_LIBRARY_PATH": "/lib:/usr/lib",
    })
    before = snapshot(source)
    configure(
        f"-S {source} -B {build} -DCMAKE_TOOLCHAIN_FILE={HERE}/openembedded.cmake"
        f" -DCMAKE_MAKE_PROGRAM={options.native}/ninja -DCMAKE_INSTALL_PREFIX:PATH=/usr"
        " -DCMAKE_INSTALL_BINDIR:PATH=bin -DCMAKE_INSTALL_LIBDIR:PATH=lib"
        " -DCMAKE_INSTALL_INCLUDEDIR:PATH=include -DCMAKE_INSTALL_DATAROOTDIR:PATH=share"
        " -DCMAKE_INSTALL_SYSCONFDIR:PATH=/etc -DCMAKE_INSTALL_SO_NO_EXE=0"
        " -DCMAKE_NO_SYSTEM_FROM_IMPORTED=1 -DCMAKE_EXPORT_NO_PACKAGE_REGISTRY=ON"
        " -DFETCHCONTENT_FULLY_DISCONNECTED=ON -Wno-dev",
        build, recipe.get("EXTRA_OECMAKE"), environment)
    shell(f"{options.cmake} --build {build}", environment)
    shell(f"DESTDIR={image} {options.cmake} --build {build} --target install", environment)
    shell(recipe.function("do_install:append"), environment)
    expect(snapshot(source) == before, "something was written into the sources")

    split_debug(files_of(image))
    packages = split_packages(recipe, image)
    check_packages(packages)
    check_paths(files_of(image))
    check_libraries(packages["oxil"])
    check_platform(image / "usr/lib/liboxil.so.0", platform)

    # What goes to the device; and what an application's recipe, or a kit for its author, has.
    device, kit = work / "device", work / "kit"
    install_packages(recipe, packages, "oxil", device)
    make_sysroot(kit, recipe.get("DEPENDS").split())
    install_packages(recipe, packages, "oxil-dev", kit)
    environment = make_environment(kit, environment | {
        "STAGING_DIR_HOST": str(kit), "TOOLCHAIN_OPTIONS": f"--sysroot={kit}"})
    build_applications(work, HERE / "openembedded.cmake", kit, device, environment)


# ---- Buildroot -----------------------------------------------------------------------------------


def test_buildroot():
    work = options.work / "buildroot"
    staging, target = work / "staging", work / "target"
    settings = {
        "BR2_PACKAGE_OXIL_PLATFORM_LIBRARIES": f'"{PLATFORM["libraries"]}"',
        "BR2_PACKAGE_OXIL_PLATFORM_PACKAGES": f'"{PLATFORM["packages"]}"',
        "BR2_PACKAGE_OXIL_FEATURE_NAMESPACE": f'"{PLATFORM["namespace"]}"',
    }
    (conf_options,) = read_package(["OXIL_CONF_OPTS"], settings | {"BR2_PACKAGE_LUAJIT": "y"})
    expect("-DOXIL_LUA=luajit" in conf_options, f"where LuaJIT was chosen: {conf_options}")
    conf_options, dependencies, install_staging, in_source = read_package(
        ["OXIL_CONF_OPTS", "OXIL_DEPENDENCIES", "OXIL_INSTALL_STAGING",
         "OXIL_SUPPORTS_IN_SOURCE_BUILD"], settings | {"BR2_PACKAGE_LUA_5_1": "y"})
    expect(install_staging == "YES", "nothing is installed for applications to be built with")
    expect("host-pkgconf" in dependencies.split(), f"pkg-config is needed beside {dependencies}")

    source = unpack(work)
    build = source / "buildroot-build" if in_source == "NO" else source
    # Which package it is that has the interpreter, was chosen above.
    make_sysroot(staging, dependencies.replace("luainterpreter", "lua").split())
    environment = make_environment(staging, {
        "STAGING_DIR": str(staging),
        "CFLAGS": "-D_LARGEFILE_SOURCE -D_LARGEFILE64_SOURCE -D_FILE_OFFSET_BITS=64 -O2 -g0",
        "CXXFLAGS": "-D_LARGEFILE_SOURCE -D_LARGEFILE64_SOURCE -D_FILE_OFFSET_BITS=64 -O2 -g0",
        "LDFLAGS": "-Wl,-z,now -Wl,-z,relro",
    })
    before = snapshot(source)
    switched_off = " ".join(f"-DBUILD_{what}=OFF" for what in (
        "DOC", "DOCS", "EXAMPLE", "EXAMPLES", "TEST", "TESTS", "TESTING"))
    configure(
        f"-S {source} -B {build} -DCMAKE_TOOLCHAIN_FILE={HERE}/buildroot.cmake"
        f" -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_RUNSTATEDIR=/run -DCMAKE_COLOR_MAKEFILE=OFF"
        f" {switched_off} -DBUILD_SHARED_LIBS=ON", build, conf_options, environment)
    shell(f"{options.cmake} --build {build}", environment)
    shell(f"DESTDIR={staging} {options.cmake} --install {build}", environment)
    shell(f"DESTDIR={target} {options.cmake} --install {build}", environment)
    after = {path: time for path, time in snapshot(source).items()
             if path != build and build not in path.parents}
    expect(after == before, "something was written into the sources")

    files = files_of(target)
    check_paths(files)
    check_paths({name: staging / name[1:] for name in files})
    check_libraries({name: path for name, path in files.items() if not name.endswith(".a")})

    # As every target is finished.
    for name, path in files.items():
        if name.startswith(("/usr/include/", "/usr/share/doc/", "/usr/share/gdb/", "/usr/lib/cmake/",
                            "/usr/lib/pkgconfig/")) or name.endswith(".a"):
            path.unlink()
        elif is_elf(path):
            run([options.strip, "--strip-unneeded", "--remove-section=.comment",
                 "--remove-section=.note", path])
    expect(set(files_of(target)) == {"/usr/lib/liboxil.so", "/usr/lib/liboxil.so.0", options.library},
           f"on the device are {sorted(files_of(target))}")
    check_paths(files_of(target))
    check_platform(target / "usr/lib/liboxil.so.0", PLATFORM)
    build_applications(work, HERE / "buildroot.cmake", staging, target, environment)


# --------------------------------------------------------------------------------------------------

parser = argparse.ArgumentParser()
parser.add_argument("--source", type=pathlib.Path, required=True)
parser.add_argument("--version", required=True)
parser.add_argument("--work", type=pathlib.Path)
parser.add_argument("--sysroot", type=pathlib.Path)
parser.add_argument("--library-architecture")
parser.add_argument("--processor")
parser.add_argument("--c-compiler", type=pathlib.Path)
parser.add_argument("--cxx-compiler", type=pathlib.Path)
parser.add_argument("--cmake")
parser.add_argument("--emulator", nargs=argparse.REMAINDER)
options = parser.parse_args()

options.library = f"/usr/lib/liboxil.so.0.{options.version}"

try:
    check_recipe()
    check_package()
    if options.work and not problems:
        prepare()
        test_openembedded(PLATFORM)
        test_openembedded(STAND_INS)
        test_buildroot()
finally:
    for problem in dict.fromkeys(problems):
        print(problem)
sys.exit(1 if problems else 0)
