// PyModule: the compiled part of the Python package merovane (merovane._merovane).
#include <string>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "PyAntabCheck.h"
#include "PyCalibrate.h"
#include "PyErrors.h"
#include "PySimulate.h"
#include "PyUVXReader.h"

namespace py = pybind11;

PYBIND11_MODULE(_merovane, m) {
    m.doc() = "Compiled core of the merovane package; use the functions of merovane itself.";
    py::register_exception<AMerovaneError>(m, "MerovaneError", PyExc_RuntimeError);

    py::class_<PyUVXReader>(m, "_UVXFile")
        .def(py::init<const std::string&>(), py::arg("path"))
        .def("close", &PyUVXReader::Close)
        .def("header", &PyUVXReader::Header)
        .def("tables", &PyUVXReader::Tables)
        .def("read", &PyUVXReader::Read, py::arg("start"), py::arg("count"))
        .def_property_readonly("path", &PyUVXReader::Path);

    m.def("simulate", &SimulateToFiles, py::arg("path"));
    m.def("load_truth", &LoadTruth, py::arg("path"));
    m.def("calibrate", &CalibrateFiles, py::arg("inp"), py::arg("out"), py::arg("progress"),
          py::arg("report"));
    m.def("antab_check", &CheckAntab, py::arg("path"), py::arg("uvx"));
}
