TEST(x,y){}
