// An empty main: linked as it is, the cost of starting a process; linked
// against the shared library, the cost of loading it and what it needs.
int main() { return 0; }
