# Finds what the Python module needs: Debian's pybind11 and the development
# files of the interpreter they belong to. Debian's pybind11 and python3-dev
# serve /usr/bin/python3, so that interpreter is preferred over whatever
# python3 comes first on PATH (pyenv, a venv); -DPython_EXECUTABLE=...
# chooses another one. Sets TARVO2_PYTHON_AVAILABLE.
if(NOT DEFINED Python_EXECUTABLE AND EXISTS /usr/bin/python3)
  set(Python_EXECUTABLE /usr/bin/python3)
endif()
set(TARVO2_PYTHON_AVAILABLE OFF)
find_package(Python COMPONENTS Interpreter Development.Module QUIET)
if(Python_FOUND)
  set(PYBIND11_FINDPYTHON ON)
  find_package(pybind11 CONFIG QUIET)
  if(pybind11_FOUND)
    set(TARVO2_PYTHON_AVAILABLE ON)
  endif()
endif()
