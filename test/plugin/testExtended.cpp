/* testExtended.cpp: the arrays of the extended list as the pipeline gets them: names, components and values of every
 * entry on every block at every step, against the model of the run and against what the library answers. */

#include "test/plugin/pluginTestUtil.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "rdb/rdb.h"

namespace fs = std::filesystem;

/* ------------------------------------------------------------------------------------------------------- the run */

/* In the order of the list, with the prefix of their names */
static const struct { const char *ext, *prefix; } families[] = {
    { "ora", "running_ave_" },     { "odq", "" },                { "onr", "residual_" },
    { "oee", "error_estimator_" }, { "oae", "time_ave_error_" }, { "ota", "time_ave_" },
};
static const struct { const char *ext, *prefix; } setFamilies[] = {
    { "osf", "surface_" }, { "orf", "radiation_" }, { "oqf", "solar_" },
};

/* All that a run can have at its nodes */
static tool::RunSpec fullRun()
{
    tool::RunSpec spec;
    spec.mesh = tool::Mesh::mixed;
    spec.scattered = true;
    spec.nSds = 2;
    spec.setVars("all,species:3,field:2,film:2,auxiliary_output:2");
    spec.setSteps(3, 10);                                 /* each logged: the sun is taken within a time step */
    for (const auto &fam : families) spec.families.push_back({ fam.ext });
    for (const auto &fam : setFamilies) spec.setFamilies.push_back({ fam.ext });
    spec.top = true;
    return spec;
}

/* --------------------------------------------------------------------------------------------- what must be shown */

struct Entry { std::string name; int dim; };
struct Shown { std::string name; int entry, first, nComps; };      /* components from `first` of an entry's values */

static std::vector<Entry> listOf(const tool::RunModel &model)
{
    std::vector<Entry> list;
    for (const tool::Var &var : model.vars) list.push_back({ var.name, var.dim });
    for (const tool::Var &var : model.vars) list.push_back({ "grad_" + var.name, 3 * var.dim });
    for (const Entry &aux : { Entry{ "volume", 1 }, Entry{ "strain_rate_invariant_2", 1 },
                              Entry{ "velocity_magnitude", 1 }, Entry{ "vorticity", 3 } })
        list.push_back(aux);
    for (size_t f = 0; f < model.spec.families.size(); ++f) {
        const tool::FamSpec &fam = model.spec.families[f];
        for (int row : famVars(fam))
            list.push_back({ std::string(families[f].prefix) + famName(fam, row), famDim(model, fam, row) });
    }
    for (size_t f = 0; f < model.spec.setFamilies.size(); ++f) {
        const tool::SetFamSpec &fam = model.spec.setFamilies[f];
        for (int row : setOutVars(fam))
            list.push_back({ std::string(setFamilies[f].prefix) + setOutName(fam, row), setOutDim(model, fam, row) });
    }
    return list;
}

static bool has(const std::string &name, const char *part)
{
    return name.find(part) != std::string::npos;
}

/* What an entry is shown as. A gradient is one array whatever it is of. */
static std::vector<std::string> arraysOf(const tool::RunModel &model, const Entry &entry)
{
    const std::string       &name = entry.name;
    std::vector<std::string> names;
    for (int i = 0; i < entry.dim; ++i) {
        const size_t at = name.find("field");              /* a piece of its own wherever it stands in these runs */
        if (name == "auxiliary_output" || name == "film") names.push_back(name + "_" + std::to_string(i + 1));
        else if (name.compare(0, 5, "grad_") == 0) break;
        else if (at != std::string::npos)
            names.push_back(name.substr(0, at) + "-" + model.fieldNames[i] + name.substr(at + 5));
        else if (name == "species") names.push_back(model.speciesNames[i]);
        else if (has(name, "species") || has(name, "diffusivity"))
            names.push_back(name + "_" + std::to_string(i + 1));
        else break;
    }
    if (names.empty()) names.push_back(name == "mesh_displacement_midstep" ? "mesh_displacement" : name);
    return names;
}

static std::vector<Shown> shownOf(const tool::RunModel &model)
{
    std::vector<Shown>       shown;
    const std::vector<Entry> list = listOf(model);
    for (int e = 0; e < int(list.size()); ++e) {
        const std::vector<std::string> names = arraysOf(model, list[e]);
        const int                      nComps = list[e].dim / int(names.size());
        for (int s = 0; s < int(names.size()); ++s) shown.push_back({ names[s], e, s * nComps, nComps });
    }
    return shown;
}

/* ---------------------------------------------------------------------------------------------- what is delivered */

/* The pipeline's proxy, and the same run once more through the library */
struct ExtendedRun {
    tool::RunModel                 model;
    vtkNew<vtkMarivaneReaderProxy> proxy;
    rdbHd                         *hd;

    explicit ExtendedRun(const tool::RunSpec &spec, const std::string &options = "") : model(spec)
    {
        tool::writeRun(model);
        setOptions("verbose = 0\nextended_nodal_output = true\n" + options);
        proxy->SetFileName("pipe.1.Log");
        proxy->UpdateInformation();
        hd = rdbNew("pipe", "QUENTA.DIR", ".", 0);
        EXPECT_NE(hd, nullptr);
        EXPECT_EQ(rdbOpenRun(hd, 1), 1);
    }
    ~ExtendedRun() { rdbFree(hd); }

    std::vector<double> answer(const char *key, int i, int step, int dim)
    {
        std::vector<double> values(size_t(model.nNodes) * dim, -77);
        EXPECT_EQ(rdbGetReals2(hd, key, values.data(), i, step, dim, model.nNodes), 1) << key << " " << i;
        return values;
    }

    void checkPoints(vtkMultiBlockDataSet *output, int step, bool moved)
    {
        std::vector<double> by(size_t(model.nNodes) * 3);
        if (moved) by = answer("outValues", model.varOf("mesh_displacement"), step, 3);
        for (int b = 0; b < model.nBlocks(); ++b) {
            const std::vector<int> nodes = model.blockNodes(b);
            for (size_t i = 0; i < nodes.size(); ++i) {
                double xyz[3], point[3];
                model.crd(nodes[i], xyz);
                gridOf(output, b)->GetPoint(vtkIdType(i), point);
                for (int c = 0; c < 3; ++c)
                    ASSERT_EQ(point[c], float(double(float(xyz[c])) + by[size_t(nodes[i]) * 3 + c])) << "block " << b;
            }
        }
    }

    void checkArray(vtkMultiBlockDataSet *output, const Shown &shown, const std::vector<double> &values)
    {
        const size_t dim = values.size() / model.nNodes;
        for (int b = 0; b < model.nBlocks(); ++b) {
            const std::vector<int> nodes = model.blockNodes(b);
            vtkFloatArray         *array = arrayOf(output, b, shown.name);
            ASSERT_NE(array, nullptr);
            ASSERT_EQ(array->GetNumberOfComponents(), shown.nComps);
            ASSERT_EQ(array->GetNumberOfTuples(), vtkIdType(nodes.size()));
            for (size_t i = 0; i < nodes.size(); ++i)
                for (int c = 0; c < shown.nComps; ++c)
                    ASSERT_EQ(array->GetTypedComponent(vtkIdType(i), c),
                              float(values[size_t(nodes[i]) * dim + shown.first + c])) << "block " << b << " " << i;
        }
    }

    /* All that is shown at a step; of one name the later one is */
    void checkStep(int step, bool moved)
    {
        SCOPED_TRACE("step " + std::to_string(step));
        vtkMultiBlockDataSet        *output = update(proxy, step);
        const std::vector<Entry>     list = listOf(model);
        std::map<std::string, Shown> last;
        for (const Shown &shown : shownOf(model)) last[shown.name] = shown;

        ASSERT_EQ(int(output->GetNumberOfBlocks()), model.nBlocks());
        checkPoints(output, step, moved);
        for (int b = 0; b < model.nBlocks(); ++b)
            EXPECT_EQ(gridOf(output, b)->GetPointData()->GetNumberOfArrays(), int(last.size()));
        for (const auto &named : last) {
            SCOPED_TRACE(named.first);
            const int entry = named.second.entry;
            checkArray(output, named.second, answer("outExtValues", entry, step, list[entry].dim));
        }
    }
};

/* ------------------------------------------------------------------------------------------------------ the tests */

TEST(extended, everyArrayOfEveryBlockAtEveryStep)
{
    static const struct { const char *name; tool::Form form; bool merged, moving; } rows[] = {
        { "text",              tool::Form::ascii,      false, true  },
        { "binary",            tool::Form::binary,     false, true  },
        { "binary at rest",    tool::Form::binary,     false, false },
        { "swapped in one",    tool::Form::swapped,    true,  true  },
        { "compressed in one", tool::Form::compressed, true,  false },
        { "hdf",               tool::Form::hdf,        false, true  },
        { "container",         tool::Form::container,  true,  true  },
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        tool::RunSpec spec = fullRun();
        spec.form = row.form;
        spec.merged = row.merged;
        ExtendedRun run(spec, row.moving ? "mesh_movement = true\n" : "mesh_movement = false\n");
        for (int step : { 0, 2, 1 }) run.checkStep(step, step > 0 && row.moving);
        if (row.moving) run.checkStep(0, false);          /* back to the mesh as stored */
        fs::remove_all("QUENTA.DIR");
    }
}

TEST(extended, theListIsThatOfTheLibrary)
{
    ExtendedRun              run(fullRun());
    const std::vector<Entry> list = listOf(run.model);
    int                      n = 0;
    ASSERT_EQ(rdbGetInt0(run.hd, "nOutExtVars", &n), 1);
    ASSERT_EQ(n, int(list.size()));
    for (int i = 0; i < n; ++i) {
        char name[SYS_TEXT];
        int  dim = -1;
        ASSERT_EQ(rdbGetStr1(run.hd, "outExtVarName", name, i), 1);
        ASSERT_EQ(rdbGetInt1(run.hd, "outExtVarDim", &dim, i), 1);
        EXPECT_EQ(name, list[i].name);
        EXPECT_EQ(dim, list[i].dim) << name;
    }
}

/* Names to the letter: families split into scalars, whole names ruling */
TEST(extended, names)
{
    static const struct { const char *name; int nComps; } expected[] = {
        { "velocity", 3 }, { "gas_A", 1 }, { "gas_C", 1 }, { "auxiliary_output_2", 1 }, { "mesh_displacement", 3 },
        { "-phase 1", 1 }, { "film_1", 1 }, { "viscoelastic_stress", 6 },
        { "grad_velocity", 9 }, { "grad_pressure", 3 }, { "grad_species", 9 }, { "grad_viscoelastic_stress", 18 },
        { "grad_auxiliary_output", 6 }, { "grad_field", 6 }, { "grad_film", 6 },
        { "grad_mesh_displacement_midstep", 9 },
        { "volume", 1 }, { "strain_rate_invariant_2", 1 }, { "velocity_magnitude", 1 }, { "vorticity", 3 },
        { "running_ave_velocity", 3 }, { "running_ave_species_1", 1 }, { "running_ave_species_3", 1 },
        { "running_ave_-phase 2", 1 }, { "conductivity", 6 }, { "diffusivity_2", 1 }, { "species_source_1", 1 },
        { "-phase 1_diffusivity", 1 }, { "-phase 2_source", 1 },
        { "residual_species_2", 1 }, { "residual_-phase 1", 1 },
        { "error_estimator_covariant_metric", 6 }, { "error_estimator_species_1", 1 },
        { "time_ave_error_velocity", 3 }, { "time_ave_velocity_square", 6 }, { "time_ave_stress", 6 },
        { "surface_area", 1 }, { "surface_traction", 3 }, { "surface_species_flux_3", 1 },
        { "surface_convective_-phase 1_flux", 1 }, { "surface_-phase 2_flux", 1 },
        { "radiation_mean_radiant_temperature", 1 }, { "solar_heat_flux", 1 },
    };
    ExtendedRun           run(fullRun());
    vtkMultiBlockDataSet *output = update(run.proxy, 0);
    for (const auto &e : expected) {
        vtkFloatArray *array = arrayOf(output, 0, e.name);
        ASSERT_NE(array, nullptr) << e.name;
        EXPECT_EQ(array->GetNumberOfComponents(), e.nComps) << e.name;
        EXPECT_EQ(run.proxy->GetPointArrayStatus(e.name), 1) << e.name;
        for (int c = 0; c < e.nComps; ++c) EXPECT_EQ(array->GetComponentName(c), nullptr) << e.name;
    }
    for (const char *split : { "species", "running_ave_species", "diffusivity", "film", "auxiliary_output" })
        EXPECT_EQ(arrayOf(output, 0, split), nullptr) << split;
}

/* The other families against what the run writer wrote, and zeros at an output step that a family lacks */
TEST(extended, familiesAtTheStepsThatTheyHave)
{
    tool::RunSpec spec = fullRun();
    spec.setVars("velocity,pressure,species:3,field:2");
    tool::RunModel        model(spec);
    const tool::FamSpec  &ora = model.spec.families[0];
    tool::writeRun(model);
    for (int part = 0; part < 2; ++part) fs::remove("QUENTA.DIR/pipe.1_11_" + std::to_string(part) + ".ora.B");
    setOptions("verbose = 0\nextended_nodal_output = true\n");
    vtkNew<vtkMarivaneReaderProxy> proxy;
    proxy->SetFileName("pipe.1.Log");

    for (int step : { 0, 1, 2 }) {
        vtkMultiBlockDataSet *output = update(proxy, step);
        for (const auto &shown : { Shown{ "running_ave_velocity", 0, 0, 3 }, Shown{ "running_ave_species_2", 3, 1, 1 },
                                   Shown{ "running_ave_-phase 2", 15, 1, 1 } }) {
            const int block = model.nBlocks() - 1;
            const std::vector<int> nodes = model.blockNodes(block);
            vtkFloatArray         *array = arrayOf(output, block, shown.name);
            ASSERT_NE(array, nullptr) << shown.name;
            for (size_t i = 0; i < nodes.size(); ++i)
                for (int c = 0; c < shown.nComps; ++c) {
                    const double value = famValue(model, ora, shown.entry, shown.first + c, nodes[i], step);
                    ASSERT_EQ(array->GetTypedComponent(vtkIdType(i), c), step == 1 ? 0.0f : float(value)) << shown.name;
                }
        }
    }
}

/* Without a velocity the volume alone is worked out; without other families nothing stands behind it */
TEST(extended, ofARunWithoutVelocity)
{
    tool::RunSpec spec;
    spec.setVars("pressure,temperature");
    ExtendedRun           run(spec);
    vtkMultiBlockDataSet *output = update(run.proxy, 0);
    std::vector<std::string> names;
    for (int i = 0; i < run.proxy->GetNumberOfPointArrays(); ++i) names.push_back(run.proxy->GetPointArrayName(i));
    EXPECT_EQ(names, (std::vector<std::string>{ "pressure", "temperature", "grad_pressure", "grad_temperature",
                                                "volume" }));
    EXPECT_EQ(gridOf(output, 0)->GetPointData()->GetNumberOfArrays(), 5);
}

/* Without coordinates there are no gradients: an array that was not selected does not ask for them */
TEST(extended, whatIsNotSelectedIsNotWorkedOut)
{
    tool::RunSpec spec;
    spec.setVars("velocity,pressure");
    spec.setSteps(2);
    ExtendedRun run(spec);
    for (const char *name : { "grad_velocity", "grad_pressure", "volume", "strain_rate_invariant_2", "vorticity" })
        run.proxy->SetPointArrayStatus(name, 0);
    fs::remove("QUENTA.DIR/pipe.1.crd.B");
    vtkMultiBlockDataSet *output = update(run.proxy, 1);
    EXPECT_EQ(testSlept(), 0);
    EXPECT_EQ(gridOf(output, 0)->GetPointData()->GetNumberOfArrays(), 3);
    EXPECT_NE(arrayOf(output, 0, "velocity_magnitude"), nullptr);
    run.proxy->SetPointArrayStatus("vorticity", 1);
    checkFails("pipe.1.crd.B", update(run.proxy, 0));
}

/* A run of one step gives its bulk data back once they are delivered */
TEST(extended, ofASingleStepStayWithTheGrids)
{
    tool::RunSpec spec = fullRun();
    spec.setSteps(1);
    ExtendedRun run(spec);
    run.checkStep(0, false);
    run.checkStep(0, false);
}
