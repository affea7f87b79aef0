/* testNames.cpp: which arrays a variable becomes, by its name and dimension. */

#include "test/plugin/pluginTestUtil.h"

typedef std::vector<std::string> Names;

struct Named {
    Names       arrays;
    int         counted;
    std::string said;
};

/* The naming rules on one variable, without a database. */
static Named nameOf(const std::string &name, int dimension)
{
    vtkNew<TestReader>   reader;
    TestReader::Variable variable;
    variable.Name = name;
    variable.Dimension = dimension;
    reader->Variables.assign(1, variable);
    Named named;
    named.said = printed([&] { reader->NameArrays(); });
    named.arrays = reader->Variables[0].ArrayNames;
    named.counted = reader->GetNameCounter();
    return named;
}

static Names numbered(const std::string &name, int n)
{
    Names names;
    for (int i = 1; i <= n; ++i) names.push_back(name + "_" + std::to_string(i));
    return names;
}

TEST(names, byTheRules)
{
    static const struct { const char *shows, *name; int dimension; Names arrays; int counted; } rows[] = {
        { "vector stays, three names checked",         "velocity",             3,  { "velocity" },           3  },
        { "scalar stays",                              "pressure",             1,  { "pressure" },           1  },
        { "tensor stays, six names checked",           "stress",               6,  { "stress" },             6  },
        { "any name with stress in it",                "viscoelastic_stress",  6,  { "viscoelastic_stress" },6  },
        { "velocity_square",                           "velocity_square",      6,  { "velocity_square" },    6  },
        { "a vector that is called a stress",          "wall_shear_stress",    3,  { "wall_shear_stress" },  3  },
        { "six components of no tensor",               "something",            6,  { "something" },          0  },
        { "species_diffusivity is numbered",           "species_diffusivity",  2,  numbered("species_diffusivity", 2), 0 },
        { "any diffusivity",                           "my_diffusivity_x",     1,  numbered("my_diffusivity_x", 1), 0 },
        { "gradient of a scalar",                      "grad_pressure",        3,  { "grad_pressure" },      3  },
        { "a gradient of dimension 1",                 "grad_pressure",        1,  { "grad_pressure" },      0  },
        { "gradient of a vector",                      "grad_velocity",        9,  { "grad_velocity" },      9  },
        { "gradient of a tensor",                      "grad_stress",          18, { "grad_stress" },        18 },
        { "nine components of no gradient",            "velocity_velocity",    9,  { "velocity_velocity" },  0  },
        { "gradient of species",                       "grad_species",         6,  { "grad_species" },       6  },
        { "gradient of species, not a multiple of 3",  "grad_species",         4,  { "grad_species" },       6  },
        { "a name that only holds grad",               "my_grad_x",            3,  { "my_grad_x" },          3  },
        { "auxiliary output is numbered from 1",       "auxiliary_output",     3,  numbered("auxiliary_output", 3), 0 },
        { "auxiliary output of none has no arrays",    "auxiliary_output",     0,  {},                       0  },
        { "rules look at whole names",                 "grad_auxiliary_output",3,  { "grad_auxiliary_output" }, 3 },
        { "film is numbered",                          "film",                 2,  numbered("film", 2),      0  },
        { "another film is not",                       "surface_film_coefficient", 1, { "surface_film_coefficient" }, 1 },
        { "fieldCahn takes no field rule",             "fieldCahn",            1,  { "fieldCahn" },          1  },
        { "nor does it within a name",                 "grad_fieldCahn_x",     3,  { "grad_fieldCahn_x" },   3  },
        { "midstep displacement is the displacement",  "mesh_displacement_midstep", 3, { "mesh_displacement" }, 3 },
        { "but as a vector only",                      "mesh_displacement_midstep", 1, { "mesh_displacement_midstep" }, 1 },
        { "the displacement itself",                   "mesh_displacement",    3,  { "mesh_displacement" },  3  },
        { "no dimension",                              "strange",              0,  { "strange" },            0  },
        { "an empty name",                             "",                     1,  { "" },                   1  },
        { "species of none has no arrays",             "species",              0,  {},                       0  },
        { "field of none has no arrays",               "field",                0,  {},                       0  },
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.shows);
        const Named named = nameOf(r.name, r.dimension);
        EXPECT_EQ(named.arrays, r.arrays);
        EXPECT_EQ(named.counted, r.counted);
        EXPECT_EQ(named.said, "");
    }
}

/* Without a database fieldName and fieldPrefix are the empty text, so that a field's own text is a dash. */
TEST(names, everyPieceThatIsFieldBecomesTheFieldsText)
{
    EXPECT_EQ(nameOf("field", 2).arrays, (Names{ "-", "-" }));
    EXPECT_EQ(nameOf("running_ave_field", 1).arrays, (Names{ "running_ave_-" }));
    EXPECT_EQ(nameOf("_field__field_", 1).arrays, (Names{ "_-__-_" }));
    EXPECT_EQ(nameOf("myfield_fields", 1).arrays, (Names{ "myfield_fields" }));
    EXPECT_EQ(nameOf("grad_field", 6).arrays, (Names{ "grad_field" }));
    EXPECT_EQ(nameOf("grad_field", 6).counted, 6);
}

TEST(names, warnsBeyondEightyCharacters)
{
    sysSetProgName("prog");
    const std::string base(80, 'a');

    EXPECT_EQ(nameOf(base, 1).said, "");                  /* exactly 80 */
    EXPECT_EQ(nameOf(base + "b", 1).said,                 /* 81 */
              "prog: String <" + base + "b> is too long for FieldView; truncating to 80 chars\n");
    EXPECT_EQ(nameOf(base + "b", 1).arrays, Names{ base + "b" });      /* the array's name is not cut */
    EXPECT_EQ(nameOf(base + "b", 1).counted, 1);

    /* a derived name counts, not the variable's: "x-" and "; " and the name twice */
    EXPECT_EQ(nameOf(std::string(38, 'v'), 3).said, "");
    const std::string v(39, 'v');
    EXPECT_EQ(nameOf(v, 3).said,
              "prog: String <x-" + v + "; " + v + "> is too long for FieldView; truncating to 80 chars\n");

    /* x_..._1 of a gradient of species */
    EXPECT_EQ(nameOf("grad_species" + std::string(64, 's'), 3).said, "");
    const std::string said = nameOf("grad_species" + std::string(65, 's'), 3).said;
    EXPECT_NE(said.find("String <x_grad_species"), std::string::npos);
    EXPECT_NE(said.find("String <z_grad_species"), std::string::npos);
}

TEST(names, ofTheDatabase)
{
    tool::RunSpec spec;
    spec.form = tool::Form::ascii;
    spec.setVars("velocity,pressure,species:2,auxiliary_output:2,mesh_displacement,field:3,mesh_displacement_midstep,"
                 "film:2");
    spec.setSteps(2);
    tool::RunModel model(spec);
    tool::writeRun(model);
    setOptions("verbose = 0\n");

    vtkNew<TestReader> reader;
    reader->ReadData("pipe.1.Log");
    const std::vector<tool::ShownArray> shown = model.shownArrays();
    ASSERT_EQ(reader->GetNumberOfArrays(), int(shown.size()));
    EXPECT_EQ(reader->GetNumberOfVariables(), int(shown.size()));
    for (int a = 0; a < int(shown.size()); ++a) {
        EXPECT_EQ(reader->GetArrayName(a), shown[a].name);
        EXPECT_STREQ(reader->GetVariableName(a), reader->GetArrayName(a));
        EXPECT_EQ(reader->GetArrayComponents(a), shown[a].nComps);
        EXPECT_EQ(reader->GetVariableComponents(a), shown[a].nComps);
    }
    EXPECT_EQ(reader->GetNumberOfTimeSteps(), 2);
    EXPECT_EQ(reader->GetArrayName(int(shown.size())), nullptr);
    EXPECT_EQ(reader->GetArrayComponents(-1), 0);
}

TEST(names, twoVariablesOfOneNameAreOneEntryOfTheSelection)
{
    tool::RunSpec spec;
    spec.form = tool::Form::ascii;
    spec.setVars("eddy,tdm,mesh_displacement,mesh_displacement_midstep");
    tool::RunModel model(spec);
    tool::writeRun(model);
    setOptions("verbose = 0\n");

    vtkNew<vtkMarivaneReaderProxy> proxy;
    proxy->SetFileName("pipe.1.Log");
    EXPECT_EQ(differs(model, update(proxy, 0), 0), "");   /* the later variable of a name is the one shown */
    EXPECT_EQ(proxy->GetNumberOfPointArrays(), 2);
    EXPECT_STREQ(proxy->GetPointArrayName(0), "eddy_viscosity");
    EXPECT_STREQ(proxy->GetPointArrayName(1), "mesh_displacement");
}
