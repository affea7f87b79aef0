/* vtkMarivaneReaderNames.cxx: from the database's variables to the list of output arrays.
 *
 * Most variables are one array of as many components. A few are families (species, user fields, auxiliary output, film)
 * and become one scalar array per member. The rules look at whole names, by five expressions.
 *
 * The same rules once named the components for an export to FieldView, whose names end at 80 characters. These names
 * are still formed and checked, so that a user is warned of a name that the export would cut; they are not kept. */

#include "Plugin/Reader/vtkMarivaneReader.h"

#include "Plugin/Reader/vtkMarivanePattern.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/split.hpp>

__attribute__((format(printf, 1, 2))) static std::string formatted(const char *format, ...)
{
    char    text[SYS_TEXT];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

/* The format with each %s replaced by the name. */
static std::string filled(std::string format, const std::string &name)
{
    for (size_t at = 0; (at = format.find("%s", at)) != std::string::npos; at += name.size())
        format.replace(at, 2, name);
    return format;
}

/* A component name's length is all that matters: see the head of the file. */
void vtkMarivaneReader::AddFieldViewName(const std::string &name)
{
    if (name.size() > 80)
        sysMessage("String <%s> is too long for FieldView; truncating to 80 chars", name.c_str());
    ++this->NameCounter;
}

/* formats: closed by a null */
void vtkMarivaneReader::AddFieldViewNames(const char *const *formats, const std::string &name)
{
    for (; *formats; ++formats) this->AddFieldViewName(filled(*formats, name));
}

std::string vtkMarivaneReader::ReadFieldText(int index)
{
    this->GetText("fieldName", this->FieldName, index);
    this->GetText("fieldPrefix", this->FieldPrefix, index);
    return formatted("%s-%s", this->FieldPrefix, this->FieldName);
}

/* Every piece "field" between underscores of the name becomes the field's own text. */
static std::string withFieldText(const std::string &name, const std::string &text)
{
    std::vector<std::string> pieces;
    boost::split(pieces, name, boost::is_any_of("_"), boost::token_compress_off);
    for (std::string &piece : pieces)
        if (piece == "field") piece = text;
    return boost::join(pieces, "_");
}

/* Component names of a variable that stays one array, by its dimension and what its name matches. */
static const char *const tensorFormats[] = { "xx_%s", "yy_%s", "zz_%s", "xy_%s", "yz_%s", "zx_%s", nullptr };
static const char *const scalarFormats[] = { "%s", nullptr };
static const char *const gradScalarFormats[] = { "x_%s", "y_%s", "z_%s", nullptr };
static const char *const vectorFormats[] = { "x-%s; %s", "y-%s", "z-%s", nullptr };
static const char *const gradFieldFormats[] = { "x_grad_%s", "y_grad_%s", "z_grad_%s", nullptr };
static const char *const gradVectorFormats[] = {
    "x_grad_x_%s", "y_grad_x_%s", "z_grad_x_%s",
    "x_grad_y_%s", "y_grad_y_%s", "z_grad_y_%s",
    "x_grad_z_%s", "y_grad_z_%s", "z_grad_z_%s", nullptr
};
static const char *const gradTensorFormats[] = {
    "x_grad_xx_%s", "y_grad_xx_%s", "z_grad_xx_%s",
    "x_grad_yy_%s", "y_grad_yy_%s", "z_grad_yy_%s",
    "x_grad_zz_%s", "y_grad_zz_%s", "z_grad_zz_%s",
    "x_grad_xy_%s", "y_grad_xy_%s", "z_grad_xy_%s",
    "x_grad_yz_%s", "y_grad_yz_%s", "z_grad_yz_%s",
    "x_grad_zx_%s", "y_grad_zx_%s", "z_grad_zx_%s", nullptr
};

enum { NO, YES, ANY };
static const struct ComponentRule {
    int                tensor, dimension, grad;
    bool               ofGradient;                /* the formats take the name behind "grad_" */
    const char *const *formats;
} componentRules[] = {
    /* tensor dim grad  of gradient formats; the first row that fits holds */
    { YES,    6,  ANY,  false,      tensorFormats     },
    { ANY,    1,  NO,   false,      scalarFormats     },
    { ANY,    3,  YES,  false,      gradScalarFormats },
    { ANY,    3,  NO,   false,      vectorFormats     },
    { ANY,    9,  YES,  true,       gradVectorFormats },
    { ANY,    18, YES,  true,       gradTensorFormats },
};

static bool fits(int wanted, bool given)
{
    return wanted == ANY || (wanted == YES) == given;
}

void vtkMarivaneReader::NameArrays()
{
    vtkMarivanePattern families("^.*(species|diffusivity).*$");
    vtkMarivanePattern tensors("^.*(stress|velocity_square|covariant|conductivity).*$");
    vtkMarivanePattern gradients("^grad_.*$");
    vtkMarivanePattern fields("^.*(field).*$");
    vtkMarivanePattern cahnFields("^.*(fieldCahn).*$");
    char               species[SYS_TEXT] = "";

    for (Variable &variable : this->Variables) {
        const std::string         N = variable.Name;
        const char               *name = N.c_str();
        const int                 d = variable.Dimension;
        std::vector<std::string> &arrays = variable.ArrayNames;
        const bool family = families.Match(name) >= 1;
        const bool tensor = tensors.Match(name) >= 1;
        const bool grad = gradients.Match(name) >= 0;
        const bool field = fields.Match(name) >= 1 && cahnFields.Match(name) < 0;

        arrays.assign(1, N);
        if (N == "auxiliary_output" || N == "film") {
            arrays.clear();
            for (int j = 1; j <= d; ++j) arrays.push_back(formatted("%s_%d", name, j));
        } else if (field && grad) {
            for (int j = 0; j < d; j += 3) this->AddFieldViewNames(gradFieldFormats, this->ReadFieldText(j / 3));
        } else if (field) {
            arrays.clear();
            for (int j = 0; j < d; ++j) arrays.push_back(withFieldText(N, this->ReadFieldText(j)));
        } else if (family && grad) {
            for (int j = 0; j < d; j += 3) {
                const int m = j / 3 + 1;
                this->AddFieldViewName(formatted("x_%s_%d", name, m));
                this->AddFieldViewName(formatted("y_%s_%d", name, m));
                this->AddFieldViewName(formatted("z_%s_%d", name, m));
            }
        } else if (family) {
            arrays.clear();
            for (int j = 0; j < d; ++j) {
                if (N == "species") this->GetText("speciesName", species, j);
                arrays.push_back(N == "species" ? species : formatted("%s_%d", name, j + 1));
            }
        } else {
            /* the midstep displacement is shown as the displacement */
            if (d == 3 && N == "mesh_displacement_midstep") arrays[0] = "mesh_displacement";
            for (const ComponentRule &rule : componentRules) {
                if (rule.dimension != d || !fits(rule.tensor, tensor) || !fits(rule.grad, grad)) continue;
                this->AddFieldViewNames(rule.formats, rule.ofGradient ? N.substr(5) : arrays[0]);
                break;
            }
        }
    }
}

void vtkMarivaneReader::ReadVariables()
{
    const bool  extended = this->ExtendedOutput != 0;
    const char *nameKey = extended ? "outExtVarName" : "outVarName";
    const char *dimensionKey = extended ? "outExtVarDim" : "outVarDim";
    char        name[SYS_TEXT] = "";

    this->Variables.resize(this->GetCount(extended ? "nOutExtVars" : "nOutVars"));
    this->NumberOfTimeSteps = this->GetCount("nOutSteps");
    for (int v = 0; v < int(this->Variables.size()); ++v) {
        this->GetText(nameKey, name, v);
        this->Variables[v].Name = name;
        this->Variables[v].Dimension = this->GetCount(dimensionKey, v);
    }
    this->NameArrays();

    this->VariableValues.resize(this->Variables.size());
    for (int v = 0; v < int(this->Variables.size()); ++v) {
        const Variable &variable = this->Variables[v];
        const int       n = int(variable.ArrayNames.size());
        for (int s = 0; s < n; ++s) {
            Array array;
            array.Components = variable.Dimension / n;
            array.Name = variable.ArrayNames[s];
            this->Arrays.push_back(array);
            this->ArraySources.push_back({ v, s });
        }
    }
    this->NumberOfArrays = int64_t(this->Arrays.size());

    /* the arrays' memory comes with their first use: many are never selected */
    this->ArrayBuffers.resize(this->NumberOfBlocks);
    for (auto &buffers : this->ArrayBuffers) buffers.resize(this->NumberOfArrays);
}
