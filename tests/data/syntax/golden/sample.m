#import <Foundation/Foundation.h>
@interface Gadget : NSObject
@property (nonatomic) NSString *label;
@end
// greets
static void greet(void) { NSLog(@"hi \"you\""); }
/* done */
