/** @file
 * A program that does nothing. The test is whether it links.
 */
int main()
{
    return 0;
}
