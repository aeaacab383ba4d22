// txscan: the command line for the txscanmd functions.
int main() { return 0; }
