// Carries the precompiled headers that every test shares; a program, as they are, and does nothing.
int main()
{
    return 0;
}
