// Runs a program with its standard output captured through a Pipe and its
// environment given explicitly (the child inherits none by default).
//
//   capture_output [PROGRAM ARGS...]    (default: uname -a)
#include <iostream>
#include <string>

#include <quorel/quorel.h>

using namespace quorel::sal;

int main(int argc, char** argv) {
  const std::string program = argc > 1 ? argv[1] : "uname";
  exec::Process::ArgList args;
  for (int n = 2; n < argc; ++n) args.push_back(argv[n]);
  if (argc == 1) args.push_back("-a");
  try {
    xio::Pipe pipe{xio::open::Spec(), xio::open::Spec()};
    exec::LaunchProperty lp;
    lp.set(exec::op::StdOutput(pipe.forWrite())).set(exec::op::EnvVars(exec::Process::envVars()));
    exec::Process child = exec::Process::create(program, args, lp);
    pipe.forWrite().close();  // the child holds the only writer: its exit ends the stream

    std::string output;
    xio::Channel in(pipe.forRead());
    char buffer[4096];
    for (int n; (n = in.read(buffer, static_cast<int>(sizeof buffer))) > 0;) output.append(buffer, n);
    const int status = child.wait();
    std::cout << program << " (pid " << child.id() << ") wrote " << output.size() << " bytes and exited with "
              << status << ":\n" << output;
    return status == 0 ? 0 : 1;
  } catch (const quorel::Exception& e) {
    std::cerr << e.asSimpleString() << "\n";
    return 1;
  }
}
