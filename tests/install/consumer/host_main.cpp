// Lists the installed module's shaders through the installed reference host
// library, as a host author starts: Module::open, describeShader, then one
// light configured through a ParameterBlock and shaded with a BaseContext.
// Built once with find_package(kvi) and once with pkg-config's flags.
#include <cstdio>
#include <kvi/host/context.h>
#include <kvi/host/module.h>
#include <kvi/host/parameter_block.h>
#include <kvi/host/shader_info.h>
#include <kvi/host/state.h>

int main(int argc, char** argv) {
  if (argc != 2) return std::fprintf(stderr, "usage: host_consumer MODULE\n"), 1;
  try {
    const kvi::host::Module module = kvi::host::Module::open(argv[1]);
    int parameters = 0, unset = 0;
    for (const auto& name : module.shaderNames()) {
      const kvi::host::ShaderInfo info = kvi::host::describeShader(module, name);
      parameters += int(info.parameters.size());
      // Unset fields are told only when the module's allocations reach the
      // probe, which the installed target's link options arrange.
      if (!info.unsetDetected) return std::fprintf(stderr, "%s: unset fields not told\n", name.c_str()), 1;
      for (const auto& p : info.parameters) unset += p.hasDefault ? 0 : 1;
    }
    const auto info = kvi::host::describeShader(module, "DirectionalLight");
    kvi::host::ParameterBlock block(info);
    block.setColor3("color", {0.25f, 0.5f, 1.0f});
    const kvi::host::ShaderPtr light = module.create("DirectionalLight");
    block.applyTo(light.get());
    kvi::host::BaseContext context;
    kvi::ShadingState state = kvi::host::zeroState();
    static_cast<kvi::LightShader*>(light.get())->shade(&context, &state);
    std::printf("%zu shaders, %d parameters (%d unset); DirectionalLight gives (%g, %g, %g)\n",
                module.shaderNames().size(), parameters, unset, state.lightColor[0], state.lightColor[1],
                state.lightColor[2]);
    return state.lightColor[2] == 1.0f && unset > 0 ? 0 : 1;
  } catch (const std::exception& e) {
    return std::fprintf(stderr, "host_consumer: %s\n", e.what()), 1;
  }
}
